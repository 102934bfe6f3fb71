#!/usr/bin/env bash
# The veil as the child sees it, on a virtual display with two screens (Xvfb, 1366x768 and
# 1280x1024 side by side): a family server, the agent paired and running with its windows, a
# pause given by the parents and lifted. Prints when the veil covers both screens and when it
# goes, the agent's memory before, during and after, and saves the picture of the display under
# the veil to $IMAGE (voile.png by default). Everything the agent keeps lives in a temporary
# folder. Needs the programs built in $TAVI_BUILD (build/ by default).
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
build="${TAVI_BUILD:-$racine/build}"
image="$(realpath -m "${IMAGE:-voile.png}")"

source "$racine/scripts/xvfb-commun.sh"
ms() { date +%s%3N; }
memoire() { awk '/VmRSS/ { printf "%.1f Mo", $2 / 1024 }' "/proc/$agent/status"; }

demarrer_xvfb 2646x1024x24
xrandr --setmonitor '*A' 1366/361x768/203+0+0 screen > /dev/null
xrandr --setmonitor B 1280/339x1024/271+1366+0 none > /dev/null

famille enfant ajouter Léa --fuseau Europe/Paris > /dev/null
servir_famille
"$build/src/outils/tavi" rejoindre "$code" > /dev/null 2> "$dossier/rejoindre.log" ||
    { cat "$dossier/rejoindre.log"; exit 1; }

TAVI_AGENT=1 "$build/src/app/tavi-home" 2> "$dossier/agent.log" &
agent=$!
pids+=("$agent")
sleep 3
echo "agent relié, sans voile : $(memoire)"

famille pause Léa 15 --titre Goûter > /dev/null
debut="$(ms)"
attendre '[ "$(voiles | wc -l)" = 2 ]' 45
echo "voile sur les deux écrans $(($(ms) - debut)) ms après la pause des parents (un battement au plus, 30 s) :"
voiles | sed 's/^/    /'
sleep 1
echo "avec le voile : $(memoire)"
python3 "$racine/scripts/capture-ecran.py" "$DISPLAY" "$image"
echo "image de l'écran : $image"

famille fin-pause Léa > /dev/null
debut="$(ms)"
attendre '[ -z "$(voiles)" ]' 45
echo "voile retiré $(($(ms) - debut)) ms après la fin de la pause"
sleep 2
echo "après le voile : $(memoire)"
