#!/usr/bin/env bash
# The main job: a family server and the agent's link to it. Builds the three programs, serves a
# family from a fresh base on loopback, pairs this computer through the agent's self-test, then
# shows what the parents see and the rule the agent would apply from the server's answer.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
"$racine/scripts/installer-dependances.sh"

build="${TAVI_BUILD:-$racine/build}"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target tavi tavi-home tavi-famille > /dev/null

dossier="$(mktemp -d)"
serveur=""
nettoyer() {
    [ -n "$serveur" ] && kill "$serveur" 2> /dev/null && wait "$serveur" 2> /dev/null
    rm -rf "$dossier"
}
trap nettoyer EXIT
export TZ=Europe/Paris
famille() { "$build/famille/tavi-famille" --base "$dossier/famille.db" "$@"; }
titre() { printf '\n== %s\n' "$1"; }

titre "Les parents préparent la famille (tavi-famille)"
famille enfant ajouter Léa --fuseau Europe/Paris
famille limite Léa 90
famille plage Léa lu-ve 08:30 16:30 --familles jeux,videos --cause ecole --titre École
famille plage Léa tous 21:00 07:00 --titre Dodo
famille limite-appli Léa jeux Jeux 45 steam org.prismlauncher.PrismLauncher
famille tirelire Léa +20
famille rapports Léa applis on
code="$(famille code Léa | sed -n 's/.*"code": *"\([^"]*\)".*/\1/p')"
echo "code à taper sur l'ordinateur : $code"

titre "Le serveur de la famille écoute"
# The program itself in the background, not a function: its PID is the one to stop.
"$build/famille/tavi-famille" --base "$dossier/famille.db" servir --adresse 127.0.0.1:0 \
    > "$dossier/serveur.out" &
serveur=$!
for _ in $(seq 50); do [ -s "$dossier/serveur.out" ] && break; sleep 0.1; done
cat "$dossier/serveur.out"
port="$(sed -n 's/.*"port": *\([0-9]*\).*/\1/p' "$dossier/serveur.out")"

titre "L'agent se relie avec le code (tavi-home --essai-api)"
"$build/src/app/tavi-home" --essai-api "http://127.0.0.1:$port" "$code" || true

titre "Ce que voient les parents"
famille rapport Léa
famille demandes Léa

titre "La règle que l'agent appliquerait (tavi regle sur la consigne du serveur)"
famille consigne Léa > "$dossier/consigne.json"
regle() { "$build/src/outils/tavi" regle --maintenant "$(( $(date -d "$1" +%s) * 1000 ))" \
    "${@:2}" "$dossier/consigne.json"; }
printf '%-30s' maintenant; regle now
printf '%-30s' 'demain 10:00'; regle "tomorrow 10:00"
printf '%-30s' 'demain 22:00'; regle "tomorrow 22:00"
printf '%-30s' 'demain 17:00, 90 min jouées'; regle "tomorrow 17:00" --utilise-jour 5400
