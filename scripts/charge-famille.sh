#!/usr/bin/env bash
# Load test of tavi-famille: starts a server on a temporary base, pairs computers, and lets wrk
# post heartbeats with their tokens, round robin, over kept-alive connections. Prints wrk's
# report for a plain heartbeat and for one carrying every batch, then the heartbeats per second.
#   scripts/charge-famille.sh            (TAVI_BUILD=dossier de build, défaut build/)
#   DUREE=20s CONNEXIONS=50 ORDINATEURS=50 scripts/charge-famille.sh
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
exe="${TAVI_BUILD:-$racine/build}/famille/tavi-famille"
duree="${DUREE:-10s}"
connexions="${CONNEXIONS:-50}"
ordinateurs="${ORDINATEURS:-50}"
[ -x "$exe" ] || { echo "charge-famille: $exe introuvable (construisez tavi-famille)" >&2; exit 2; }
command -v wrk >/dev/null || { echo "charge-famille: wrk manque" >&2; exit 2; }

dossier="$(mktemp -d)"
serveur=""
finir() {
    [ -n "$serveur" ] && kill -TERM "$serveur" 2>/dev/null && wait "$serveur" || true
    rm -rf "$dossier"
}
trap finir EXIT
base="$dossier/famille.db"
famille() { "$exe" --base "$base" "$@"; }

famille enfant ajouter Charge --fuseau Europe/Paris >/dev/null
famille limite Charge 120 >/dev/null
famille plage Charge lu-ve 21:00 07:00 >/dev/null
famille plage Charge sa,di 12:00 14:00 --familles jeux --cause gage >/dev/null
famille limite-appli Charge jeux Jeux 60 steam minecraft >/dev/null
famille rapports Charge applis on >/dev/null
famille rapports Charge sites on >/dev/null

"$exe" --base "$base" servir --adresse 127.0.0.1:0 >"$dossier/ecoute" &
serveur=$!
for _ in $(seq 50); do [ -s "$dossier/ecoute" ] && break; sleep 0.1; done
port="$(sed -n 's/.*"port":\([0-9]*\).*/\1/p' "$dossier/ecoute")"
adresse="http://127.0.0.1:$port"

jetons=""
for i in $(seq "$ordinateurs"); do
    code="$(famille code Charge | sed -n 's/.*"code":"\([A-Z0-9]*\)".*/\1/p')"
    jeton="$(curl -sf -X POST "$adresse/api/auth/ordinateur" -H "X-Tavi-Installation: charge-$i" \
        -H 'Content-Type: application/json' \
        -d "{\"code\":\"$code\",\"nom\":\"PC $i\",\"version\":\"0.1.0\"}" |
        sed -n 's/.*"jeton":"\([^"]*\)".*/\1/p')"
    jetons="$jetons\"$jeton\","
done

jour="$(TZ=Europe/Paris date +%F)"
heure="$(( $(date +%s) / 3600 * 3600000 ))"
simple='{"actif":true,"incertain":false,"plateforme":"linux","version":"0.1.0","systeme":"Debian 12","autorisations":{"ouverture_session":true,"automatisation":true},"utilise_jour_min":42.5,"minutes_limites":{"steam":12.5,"minecraft":3.1}}'
applis="$(for a in $(seq 40); do printf '{"p":"org.exemple.appli%d","n":"Appli %d"},' "$a" "$a"; done)"
complet="${simple%\}},\"sites\":[{\"d\":\"exemple.fr\",\"p\":$((heure + 1000)),\"f\":$((heure + 90000)),\"s\":89},{\"d\":\"wikipedia.org\",\"p\":$((heure + 2000)),\"f\":$((heure + 60000)),\"s\":58}],\"usage_applis\":{\"jours\":{\"$jour\":{\"steam\":12.5,\"firefox\":20.1}},\"noms\":{\"steam\":\"Steam\",\"firefox\":\"Firefox\"}},\"applis_installees\":[${applis%,}]}"

mesurer() {
    local nom="$1" corps="$2"
    cat >"$dossier/battement.lua" <<LUA
local jetons = { ${jetons%,} }
local corps = [[$corps]]
local i = 0
request = function()
    i = i + 1
    return wrk.format("POST", "/api/enfant/battement", {
        ["Content-Type"] = "application/json",
        ["X-Tavi-Installation"] = "charge",
        ["Authorization"] = "Bearer " .. jetons[i % #jetons + 1],
    }, corps)
end
LUA
    echo "== $nom ($ordinateurs ordinateurs, $connexions connexions, $duree)"
    wrk -t2 -c"$connexions" -d"$duree" --latency -s "$dossier/battement.lua" \
        "$adresse/api/enfant/battement" | tee "$dossier/wrk-$nom"
    echo "battements par seconde ($nom) : $(sed -n 's/^Requests\/sec: *//p' "$dossier/wrk-$nom")"
}
mesurer simple "$simple"
mesurer complet "$complet"
