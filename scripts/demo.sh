#!/usr/bin/env bash
# The main job: a family server and the agent it governs, as a child's session runs it. Builds
# the three programs, serves a family from a fresh base on loopback, pairs this computer with
# `tavi rejoindre`, then runs the agent with its tray icon and its veil, started as the login
# agent starts it: on this display, or on a virtual one (Xvfb, with trayer as the notification
# area) when there is none. The parents pause the computer: the veil covers the screen and its
# picture is saved to $IMAGE (tavi-voile.png by default); they lift the pause; the agent is
# stopped and tells the server. Everything the agent keeps (settings, token, login entry, its
# place among copies) lives in a temporary folder, with no session bus: this user's own
# pairing, keyring and session are left alone.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
"$racine/scripts/installer-dependances.sh"

build="${TAVI_BUILD:-$racine/build}"
image="$(realpath -m "${IMAGE:-tavi-voile.png}")"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target tavi tavi-home tavi-famille > /dev/null

source "$racine/scripts/xvfb-commun.sh"
tavi() { "$build/src/outils/tavi" "$@"; }
titre() { printf '\n== %s\n' "$1"; }
ms() { date +%s%3N; }
# The last news the server has of the computer, in ms since the epoch.
nouvelle() { famille rapport Léa | sed -n 's/.*"derniere_nouvelle_ms": *\([0-9]*\).*/\1/p' | head -1; }

titre "Les parents préparent la famille (tavi-famille)"
famille enfant ajouter Léa --fuseau Europe/Paris
famille limite Léa 90
famille plage Léa tous 21:00 07:00 --familles jeux,videos,reseaux --titre Dodo
famille limite-appli Léa jeux Jeux 45 steam org.prismlauncher.PrismLauncher
famille tirelire Léa +20

titre "Le serveur de la famille écoute ; l'ordinateur se relie (tavi rejoindre)"
servir_famille
cat "$dossier/serveur.out"
echo "code lu par les parents : $code"
tavi rejoindre "$code" 2> "$dossier/rejoindre.log" || { cat "$dossier/rejoindre.log"; exit 1; }

if [ -z "${DISPLAY:-}" ]; then
    titre "Pas d'écran : un écran virtuel (Xvfb 1366x768) et sa zone de notification (trayer)"
    demarrer_xvfb 1366x768x24
    trayer --edge top --align right --widthtype request --height 24 --SetDockType true \
        --tint 0xf0f0f0 --transparent false > /dev/null 2>&1 &
    pids+=($!)
fi

titre "L'agent démarre comme à l'ouverture de session (TAVI_AGENT=1), sur l'écran $DISPLAY"
avant="$(nouvelle)"
debut="$(ms)"
TAVI_AGENT=1 "$build/src/app/tavi-home" 2> "$dossier/agent.log" &
agent=$!
pids+=("$agent")
attendre '[ "$(nouvelle)" != "$avant" ]' 15
echo "premier battement reçu par le serveur $(($(nouvelle) - debut)) ms après le lancement"
awk '/VmRSS/ { printf "mémoire de l%sagent : %.1f Mo\n", "'"'"'", $2 / 1024 }' "/proc/$agent/status"

titre "Les parents donnent une pause de 15 minutes (au plus un battement, 30 s)"
famille pause Léa 15 --titre Goûter > /dev/null
debut="$(ms)"
attendre '[ -n "$(voiles)" ]' 45
echo "voile affiché $(($(ms) - debut)) ms après la pause :"
voiles | sed 's/^/    /'
sleep 1
python3 "$racine/scripts/capture-ecran.py" "$DISPLAY" "$image"
echo "image de l'écran sous le voile : $image"

titre "Les parents lèvent la pause"
famille fin-pause Léa > /dev/null
debut="$(ms)"
attendre '[ -z "$(voiles)" ]' 45
echo "voile retiré $(($(ms) - debut)) ms après la fin de la pause"

titre "Ce que voient les parents"
famille rapport Léa

titre "L'agent s'arrête (SIGTERM) et le signale"
kill "$agent"
wait "$agent" || true
famille rapport Léa | grep '"ordinateur"'
echo "journal de l'agent :"
sed 's/^/    /' "$dossier/agent.log"

titre "La règle que l'agent appliquerait (tavi regle sur la consigne du serveur)"
famille consigne Léa > "$dossier/consigne.json"
regle() { tavi regle --maintenant "$(( $(date -d "$1" +%s) * 1000 ))" "${@:2}" \
    "$dossier/consigne.json"; }
printf '%-30s' maintenant; regle now
printf '%-30s' 'demain 10:00'; regle "tomorrow 10:00"
printf '%-30s' 'demain 22:00'; regle "tomorrow 22:00"
printf '%-30s' 'demain 17:00, 90 min jouées'; regle "tomorrow 17:00" --utilise-jour 5400
