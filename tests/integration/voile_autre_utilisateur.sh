#!/usr/bin/env bash
# The real agent, paired with a tavi-famille on loopback and under a pause of the parents, on an
# Xvfb of its own; another user of the computer (tavienfant) attacks the veil with xdotool. The
# veil must come back over the whole screen within a second of each attack, and the parents'
# report must show the repair. Exit 77 (skipped) when something it needs is missing.
# Usage: voile_autre_utilisateur.sh BUILD
set -euo pipefail
racine="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(realpath "$1")"

passer() { echo "SKIPPED: $1"; exit 77; }
[ "$(id -u)" = 0 ] || passer "acting as a second user needs root"
command -v xdotool > /dev/null || passer "xdotool missing (package xdotool)"
command -v Xvfb > /dev/null || passer "Xvfb missing (package xvfb)"
command -v xwininfo > /dev/null || passer "xwininfo missing (package x11-utils)"
id tavienfant > /dev/null 2>&1 || useradd -m tavienfant || passer "no second user tavienfant"

source "$racine/scripts/xvfb-commun.sh"
unset XAUTHORITY WAYLAND_DISPLAY
ms() { date +%s%3N; }
enfant() { runuser -u tavienfant -- "$@"; }
echouer() { echo "ÉCHEC : $1" >&2; echo "--- agent" >&2; cat "$dossier/agent.log" >&2; exit 1; }
entier='1366x768+0+0'

demarrer_xvfb 1366x768x24
famille enfant ajouter Léa --fuseau Europe/Paris > /dev/null
servir_famille
"$build/src/outils/tavi" rejoindre "$code" > /dev/null
# Before the agent starts: its first heartbeat brings the pause.
famille pause Léa 15 --titre Goûter > /dev/null

TAVI_AGENT=1 "$build/src/app/tavi-home" 2> "$dossier/agent.log" &
pids+=($!)
attendre '[ "$(voiles)" = "$entier" ]' 30 || echouer "pas de voile"
id="$(xwininfo -root -children | sed -n 's/^ *\(0x[0-9a-f]*\) "Tavi Home".*/\1/p' | head -1)"

# Each attack once: back over the whole screen within a second.
for geste in "windowunmap $id" "windowmove $id 300 200" "windowsize $id 400 300"; do
    enfant xdotool $geste
    debut="$(ms)"
    attendre '[ "$(voiles)" = "$entier" ]' 1 || echouer "$geste : voile absent après 1 s"
    echo "$geste : voile rétabli en $(($(ms) - debut)) ms"
done

# Unmapped in a loop for 3 s: never away for a whole second.
# The loop ends by itself: runuser does not pass a signal on to it.
enfant timeout 3 sh -c "while :; do xdotool windowunmap $id; done" &
boucle=$!
absent=0
for _ in $(seq 30); do
    sleep 0.1
    if [ "$(voiles)" = "$entier" ]; then absent=0; else absent=$((absent + 1)); fi
    [ "$absent" -lt 10 ] || echouer "voile absent une seconde entière pendant la boucle"
done
wait "$boucle" || true
attendre '[ "$(voiles)" = "$entier" ]' 1 || echouer "voile absent après la boucle"
echo "boucle de windowunmap pendant 3 s : jamais une seconde sans voile"

attendre 'famille rapport Léa | grep -q voile_repare' 10 || echouer "aucun signal chez les parents"
famille rapport Léa | grep -o '"nature": *"voile_repare"[^}]*' | head -1
