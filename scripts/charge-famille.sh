#!/usr/bin/env bash
# Load test of tavi-famille: starts a server on a temporary base, pairs computers, and lets wrk
# post heartbeats with their tokens, round robin, over kept-alive connections. Prints wrk's
# report for a plain heartbeat and for one carrying every batch, then the heartbeats per second.
# Then, with attackers and idle agents on other loopback addresses (127.0.1.x, 127.0.2.x,
# 127.0.0.2) so that per-address limits apply as on the internet: the server's CPU with 1,000
# idle kept-alive agents, the delay of one real heartbeat while 200 slow connections (a byte
# every 2 s) and those 1,000 are open, and its RSS before and after a header flood.
#   scripts/charge-famille.sh            (TAVI_BUILD=dossier de build, défaut build/)
#   DUREE=20s CONNEXIONS=50 ORDINATEURS=50 INACTIFS=1000 LENTS=200 scripts/charge-famille.sh
#   ATTAQUES=0 scripts/charge-famille.sh (wrk only)
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
exe="${TAVI_BUILD:-$racine/build}/famille/tavi-famille"
duree="${DUREE:-10s}"
connexions="${CONNEXIONS:-50}"
ordinateurs="${ORDINATEURS:-50}"
inactifs="${INACTIFS:-1000}"
lents="${LENTS:-200}"
attaques="${ATTAQUES:-1}"
[ -x "$exe" ] || { echo "charge-famille: $exe introuvable (construisez tavi-famille)" >&2; exit 2; }
command -v wrk >/dev/null || { echo "charge-famille: wrk manque" >&2; exit 2; }

dossier="$(mktemp -d)"
serveur=""
clients=()
finir() {
    for c in "${clients[@]}"; do kill -TERM "$c" 2>/dev/null || true; done
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

# wrk's connections all come from 127.0.0.1: above the default per-address cap.
options=()
"$exe" --aide 2>&1 | grep -q -- --connexions-par-adresse && options=(--connexions-par-adresse 64)
"$exe" --base "$base" servir --adresse 127.0.0.1:0 "${options[@]}" >"$dossier/ecoute" &
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

[ "$attaques" = 1 ] || exit 0

# The attackers and idle agents: one asyncio process per role, stopped by SIGTERM.
cat >"$dossier/clients.py" <<'PY'
import asyncio, socket, sys, time

role, port, n = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
jetons = sys.argv[4:]

async def connecter(source):
    s = socket.socket()
    s.setblocking(False)
    s.bind((source, 0))
    await asyncio.get_running_loop().sock_connect(s, ("127.0.0.1", port))
    return await asyncio.open_connection(sock=s)

async def inactif(i, prets):
    corps = b'{"actif":true,"incertain":false,"plateforme":"linux","version":"0.1.0","autorisations":{"ouverture_session":true},"utilise_jour_min":1}'
    lecteur, ecrivain = await connecter("127.0.1.%d" % (i // 20 + 1))
    ecrivain.write(b"POST /api/enfant/battement HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                   b"Authorization: Bearer " + jetons[i % len(jetons)].encode() +
                   b"\r\nContent-Length: " + str(len(corps)).encode() + b"\r\n\r\n" + corps)
    tete = await lecteur.readuntil(b"\r\n\r\n")
    longueur = int(tete.lower().split(b"content-length:")[1].split(b"\r\n")[0])
    await lecteur.readexactly(longueur)
    prets[0] += 1
    await lecteur.read()  # holds the connection until the server ends it

async def lent(i):
    while True:
        try:
            _, ecrivain = await connecter("127.0.2.%d" % (i // 20 + 1))
            for octet in b"POST /api/enfant/battement HTTP/1.1\r\nX-" + b"a" * 100000:
                ecrivain.write(bytes([octet]))
                await ecrivain.drain()
                await asyncio.sleep(2)
        except (OSError, asyncio.IncompleteReadError):
            await asyncio.sleep(0.2)

async def entetes(i):
    ligne = b"X-Flot: " + b"a" * 50 + b"\r\n"
    paquet = ligne * 1000
    while True:
        try:
            _, ecrivain = await connecter("127.0.0.2")
            ecrivain.write(b"POST /api/enfant/battement HTTP/1.1\r\nHost: x\r\n")
            while True:
                ecrivain.write(paquet)
                await ecrivain.drain()
        except (OSError, asyncio.IncompleteReadError):
            await asyncio.sleep(0.01)

async def principal():
    if role == "inactifs":
        prets = [0]
        taches = [asyncio.create_task(inactif(i, prets)) for i in range(n)]
        debut = time.time()
        while prets[0] < n and time.time() - debut < 30:
            await asyncio.sleep(0.2)
        print(prets[0], flush=True)
        await asyncio.gather(*taches, return_exceptions=True)
        await asyncio.sleep(3600)
    elif role == "lents":
        await asyncio.gather(*(lent(i) for i in range(n)))
    else:
        await asyncio.gather(*(entetes(i) for i in range(n)))

asyncio.run(principal())
PY
listeJetons="$(echo "${jetons%,}" | tr -d '"' | tr ',' ' ')"
pid_serveur="$serveur"
cpu() { awk '{print $14 + $15}' "/proc/$pid_serveur/stat"; }
rss() { awk '/VmRSS/ {print $2}' "/proc/$pid_serveur/status"; }
tic="$(getconf CLK_TCK)"
battementReel() {
    curl -s -o /dev/null -w '%{http_code} %{time_total}' --max-time 120 -X POST \
        "$adresse/api/enfant/battement" -H 'Content-Type: application/json' \
        -H "Authorization: Bearer $(echo "$listeJetons" | cut -d' ' -f1)" -d "$simple" || echo " (échec)"
}

echo "== $inactifs agents inactifs gardés ouverts (127.0.1.x)"
python3 "$dossier/clients.py" inactifs "$port" "$inactifs" $listeJetons >"$dossier/inactifs" &
clients+=($!)
for _ in $(seq 40); do [ -s "$dossier/inactifs" ] && break; sleep 1; done
echo "agents inactifs servis : $(cat "$dossier/inactifs" 2>/dev/null || echo '?') / $inactifs"
avant="$(cpu)"
sleep 20
echo "CPU du serveur, $inactifs agents inactifs, 20 s : $(awk -v a="$avant" -v b="$(cpu)" -v t="$tic" 'BEGIN {printf "%.2f %%", (b - a) / t / 20 * 100}')"

echo "== un vrai battement pendant $lents connexions lentes (127.0.2.x, un octet toutes les 2 s) et $inactifs inactives"
python3 "$dossier/clients.py" lents "$port" "$lents" &
clients+=($!)
sleep 5
for i in 1 2 3; do
    echo "battement réel $i (statut, secondes) : $(battementReel)"
    sleep 5
done
kill -TERM "${clients[@]}" 2>/dev/null || true
wait "${clients[@]}" 2>/dev/null || true
clients=()
sleep 2

echo "== mémoire avant et après 4 connexions qui envoient des en-têtes sans fin (127.0.0.2, 5 s)"
avant="$(rss)"
python3 "$dossier/clients.py" entetes "$port" 4 &
clients+=($!)
sleep 5
pendant="$(rss)"
kill -TERM "${clients[@]}" 2>/dev/null || true
wait "${clients[@]}" 2>/dev/null || true
clients=()
sleep 3
echo "RSS du serveur : avant $((avant / 1024)) Mio, pendant $((pendant / 1024)) Mio, après $(( $(rss) / 1024 )) Mio"
echo "battement réel après l'attaque (statut, secondes) : $(battementReel)"
