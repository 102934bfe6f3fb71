#!/usr/bin/env bash
# The child's first minutes, on a virtual display (Xvfb, 1366x768) with trayer as the panel's
# notification area: the agent starts unpaired and opens its welcome window; the parents' code
# is typed into it from the keyboard; the child reads what the parents can see and acknowledges
# it; then, from the tray icon's menu, asks for 10 minutes and spends 10 minutes of the piggy
# bank. Checks each step on the family server's side and saves pictures of the screen in
# $IMAGES (the current folder by default). Everything the agent keeps lives in a temporary
# folder. Needs the programs built in $TAVI_BUILD (build/ by default), xdotool and trayer.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
build="${TAVI_BUILD:-$racine/build}"
images="$(realpath -m "${IMAGES:-.}")"
mkdir -p "$images"

source "$racine/scripts/xvfb-commun.sh"
photo() {
    python3 "$racine/scripts/capture-ecran.py" "$DISPLAY" "$images/$1"
    echo "    image : $images/$1"
}
# The tray icon's centre, from the window trayer embedded for the agent.
icone() {
    xwininfo -root -tree | awk '/"tavi-home"/ && /16x16|22x22|24x24/ { print; exit }' |
        sed -n 's/.* \([0-9]*\)x\([0-9]*\)+[-0-9]*+[-0-9]*  *+\([-0-9]*\)+\([-0-9]*\).*/\1 \2 \3 \4/p' |
        awk '{ print $3 + int($1 / 2), $4 + int($2 / 2) }'
}

demarrer_xvfb 1366x768x24
trayer --edge top --align right --widthtype request --height 24 --SetDockType true \
    --tint 0xf0f0f0 --transparent false > /dev/null 2>&1 &
pids+=($!)

famille enfant ajouter Léa --fuseau Europe/Paris > /dev/null
famille limite Léa 90 > /dev/null
famille tirelire Léa +20 > /dev/null
famille rapports Léa applis on > /dev/null
servir_famille

debut="$(date +%s%3N)"
"$build/src/app/tavi-home" 2> "$dossier/agent.log" &
agent=$!
pids+=("$agent")
attendre 'fenetre="$(xdotool search --name "^Tavi Home$" 2> /dev/null | head -1)"; [ -n "$fenetre" ]' 15
echo "fenêtre d'accueil ouverte (non relié) $(($(date +%s%3N) - debut)) ms après le lancement"
sleep 1
photo accueil-rejoindre.png

# The code as a child might type it: lower case, a dash between its halves.
tape="$(tr '[:upper:]' '[:lower:]' <<< "${code:0:4}-${code:4}")"
xdotool windowfocus --sync "$fenetre"
xdotool type --delay 40 "$tape"
xdotool key Return
attendre 'famille rapport Léa | grep -q "\"ordinateur"' 20
echo "code « $tape » tapé : l'ordinateur est relié à Léa"
sleep 2
photo accueil-ce-que-voient.png

xdotool key space # "J'ai compris" has the keyboard
sleep 3
photo accueil-fini.png
xdotool key space # "OK"
attendre '[ -z "$(xdotool search --onlyvisible --name "^Tavi Home$" 2> /dev/null)" ]' 5
echo "accord donné, fenêtre fermée"
sleep 2
echo "mémoire de l'agent relié, icône dans la zone de notification, sans voile : $(awk '/VmRSS/ { printf "%.1f Mo", $2 / 1024 }' "/proc/$agent/status")"

# From the tray icon's menu: ask for 10 minutes, then spend 10 of the piggy bank's 20.
attendre '[ -n "$(icone)" ]' 15
read -r x y <<< "$(icone)"
xdotool mousemove "$x" "$y" click 1
sleep 1
xdotool key Down Right
sleep 1
photo barre-menu-demander.png
xdotool key Return
attendre 'famille demandes Léa | grep -q "\"minutes\":10"' 10
echo "demande de 10 min reçue par les parents"

sleep 1
xdotool mousemove "$x" "$y" click 1
sleep 1
xdotool key Down Down Right
sleep 1
photo barre-menu-tirelire.png
xdotool key Return
attendre 'famille reglages Léa | grep -q "\"tirelire_min\":10\."' 10
echo "10 min de la tirelire utilisées (il en reste 10)"
