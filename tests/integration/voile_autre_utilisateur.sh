#!/usr/bin/env bash
# The real agent, paired with a tavi-famille on loopback and under a pause, on an Xvfb of its
# own; another user of the computer (tavienfant) moves, resizes, covers, reparents, makes
# transparent and, for 3 s in a loop, unmaps its veil with xdotool and xprop. The veil is back
# within a second each time, and the parents' report shows the repair. Exit 77 (skipped) when
# something it needs is missing. Usage: voile_autre_utilisateur.sh BUILD
set -euo pipefail
racine="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(realpath "$1")"
passer() { echo "SKIPPED: $1"; exit 77; }
[ "$(id -u)" = 0 ] || passer "acting as a second user needs root"
for p in xdotool Xvfb xwininfo xclock xprop; do command -v $p > /dev/null || passer "$p missing"; done
id tavienfant > /dev/null 2>&1 || useradd -m tavienfant || passer "no second user tavienfant"

source "$racine/scripts/xvfb-commun.sh"
echouer() { echo "ÉCHEC : $1" >&2; cat "$dossier/agent.log" >&2; exit 1; }
# The loops and windows of the other user end by themselves: runuser passes no signal on.
enfant() { runuser -u tavienfant -- timeout "$@"; }
# Mapped over the whole screen, and the highest of the root's children (xwininfo lists the top first).
couvert() {
    [ "$(voiles)" = 1366x768+0+0 ] && xwininfo -root -children | grep -m1 '^ *0x' | grep -q '"Tavi Home"'
}
demarrer_xvfb 1366x768x24
famille enfant ajouter Léa --fuseau Europe/Paris > /dev/null
servir_famille
"$build/src/outils/tavi" rejoindre "$code" > /dev/null
famille pause Léa 15 > /dev/null # before the agent: its first heartbeat brings it
TAVI_AGENT=1 "$build/src/app/tavi-home" 2> "$dossier/agent.log" &
pids+=($!)
attendre couvert 30 || echouer "pas de voile"
id="$(xwininfo -root -children | sed -n 's/^ *\(0x[0-9a-f]*\) "Tavi Home".*/\1/p' | head -1)"
enfant 30 xclock -geometry 300x300+10+10 &
attendre 'xwininfo -root -children | grep -q "\"xclock\""' 10
horloge="$(xwininfo -root -children | sed -n 's/^ *\(0x[0-9a-f]*\) "xclock".*/\1/p')"

for geste in "windowmove $id 300 200" "windowsize $id 400 300" "windowraise $horloge" \
    "windowreparent $id $horloge" "windowunmap $id"; do
    enfant 5 xdotool $geste
    attendre couvert 1 || echouer "$geste : pas de voile après 1 s"
done
opacite() { xprop -id "$id" _NET_WM_WINDOW_OPACITY | grep -q =; }
enfant 5 xprop -id "$id" -f _NET_WM_WINDOW_OPACITY 32c -set _NET_WM_WINDOW_OPACITY 0
attendre '! opacite' 1 || echouer "voile laissé transparent"
enfant 3 sh -c "while :; do xdotool windowunmap $id; done" &
for i in $(seq 30); do # never a whole second without the veil meanwhile
    sleep 0.1 && couvert && vu=$i
    [ $((i - ${vu:-0})) -lt 10 ] || echouer "une seconde entière sans voile pendant la boucle"
done
wait $! || true
attendre couvert 1 || echouer "pas de voile une seconde après la boucle"
# The first repair, of a kind a minute, is the clock mapped over the veil.
attendre 'famille rapport Léa | grep voile_repare | grep -q recouvert' 10 ||
    echouer "aucun signal chez les parents : $(famille rapport Léa | grep signal)"
