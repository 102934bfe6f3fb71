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

dossier="$(mktemp -d)"
pids=()
nettoyer() {
    for pid in "${pids[@]}"; do kill "$pid" 2> /dev/null && wait "$pid" 2> /dev/null || true; done
    rm -rf "$dossier"
}
trap nettoyer EXIT
export TZ=Europe/Paris XDG_STATE_HOME="$dossier/etat" XDG_CONFIG_HOME="$dossier/config"
export TAVI_DEMARRAGE=xdg DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent
famille() { "$build/famille/tavi-famille" --base "$dossier/famille.db" "$@"; }
ms() { date +%s%3N; }
memoire() { awk '/VmRSS/ { printf "%.1f Mo", $2 / 1024 }' "/proc/$agent/status"; }
# The agent's windows now mapped, one "WxH+X+Y" per line.
fenetres() {
    xwininfo -root -children | sed -n 's/^ *\(0x[0-9a-f]*\) "Tavi Home".*/\1/p' | while read -r id; do
        info="$(xwininfo -id "$id")"
        grep -q 'IsViewable' <<< "$info" && grep -q 'Override Redirect State: yes' <<< "$info" &&
            awk '/Absolute upper-left X/ { x = $NF } /Absolute upper-left Y/ { y = $NF }
                 /Width:/ { l = $NF } /Height:/ { h = $NF } END { print l "x" h "+" x "+" y }' \
                <<< "$info"
    done | sort
}
attendre() { # condition, limit in seconds
    for _ in $(seq $(($2 * 20))); do eval "$1" && return 0; sleep 0.05; done
    echo "(rien après $2 s)" >&2
    return 1
}

Xvfb -displayfd 3 -screen 0 2646x1024x24 -nolisten tcp -noreset 3> "$dossier/affichage" \
    2> /dev/null &
pids+=($!)
attendre '[ -s "$dossier/affichage" ]' 10
export DISPLAY=":$(cat "$dossier/affichage")"
xrandr --setmonitor '*A' 1366/361x768/203+0+0 screen > /dev/null
xrandr --setmonitor B 1280/339x1024/271+1366+0 none > /dev/null

famille enfant ajouter Léa --fuseau Europe/Paris > /dev/null
code="$(famille code Léa | sed -n 's/.*"code": *"\([^"]*\)".*/\1/p')"
# Not through the function: its pid would be a subshell's, and the server would outlive it.
"$build/famille/tavi-famille" --base "$dossier/famille.db" servir --adresse 127.0.0.1:0 \
    > "$dossier/serveur.out" &
pids+=($!)
attendre '[ -s "$dossier/serveur.out" ]' 10
port="$(sed -n 's/.*"port": *\([0-9]*\).*/\1/p' "$dossier/serveur.out")"
"$build/src/outils/tavi" reglage serveur "http://127.0.0.1:$port"
"$build/src/outils/tavi" rejoindre "$code" > /dev/null 2> "$dossier/rejoindre.log" ||
    { cat "$dossier/rejoindre.log"; exit 1; }

"$build/src/app/tavi-home" 2> "$dossier/agent.log" &
agent=$!
pids+=("$agent")
sleep 3
echo "agent relié, sans voile : $(memoire)"

famille pause Léa 15 --titre Goûter > /dev/null
debut="$(ms)"
attendre '[ "$(fenetres | wc -l)" = 2 ]' 45
echo "voile sur les deux écrans $(($(ms) - debut)) ms après la pause des parents (un battement au plus, 30 s) :"
fenetres | sed 's/^/    /'
sleep 1
echo "avec le voile : $(memoire)"
python3 "$racine/scripts/capture-ecran.py" "$DISPLAY" "$image"
echo "image de l'écran : $image"

famille fin-pause Léa > /dev/null
debut="$(ms)"
attendre '[ -z "$(fenetres)" ]' 45
echo "voile retiré $(($(ms) - debut)) ms après la fin de la pause"
sleep 2
echo "après le voile : $(memoire)"
