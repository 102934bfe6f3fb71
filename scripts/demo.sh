#!/usr/bin/env bash
# The main job: a family server and the agent it governs. Builds the three programs, serves a
# family from a fresh base on loopback, pairs this computer with tavi rejoindre, runs the agent
# without a window and shows its state while the parents pause the computer and lift the
# pause, then what the parents see. Everything the agent keeps (settings, token, login entry)
# lives in a temporary folder: this user's own pairing, keyring and session are left alone.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
"$racine/scripts/installer-dependances.sh"

build="${TAVI_BUILD:-$racine/build}"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target tavi tavi-home tavi-famille > /dev/null

dossier="$(mktemp -d)"
serveur=""
agent=""
nettoyer() {
    [ -n "$agent" ] && kill "$agent" 2> /dev/null && wait "$agent" 2> /dev/null
    [ -n "$serveur" ] && kill "$serveur" 2> /dev/null && wait "$serveur" 2> /dev/null
    rm -rf "$dossier"
}
trap nettoyer EXIT
export TZ=Europe/Paris
# The agent's settings and, with no Secret Service reachable, its token go to the state folder;
# its login entry to the configuration folder.
export XDG_STATE_HOME="$dossier/etat" XDG_CONFIG_HOME="$dossier/config" TAVI_DEMARRAGE=xdg
export DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent
famille() { "$build/famille/tavi-famille" --base "$dossier/famille.db" "$@"; }
tavi() { "$build/src/outils/tavi" "$@"; }
titre() { printf '\n== %s\n' "$1"; }
# Waits up to $2 seconds for a state line past line $1 that holds $3; prints its number.
attendre() {
    for _ in $(seq $(($2 * 10))); do
        n="$(tail -n +"$(($1 + 1))" "$dossier/etat.jsonl" 2> /dev/null | grep -n -F -m1 -- "$3" | cut -d: -f1)"
        [ -n "$n" ] && { echo $(($1 + n)); return 0; }
        sleep 0.1
    done
    echo "(rien après $2 s)" >&2
    return 1
}

titre "Les parents préparent la famille (tavi-famille)"
famille enfant ajouter Léa --fuseau Europe/Paris
famille limite Léa 90
famille plage Léa lu-ve 08:30 16:30 --familles jeux,videos --cause ecole --titre École
famille plage Léa tous 21:00 07:00 --familles jeux,videos,reseaux --titre Dodo
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

titre "L'ordinateur se relie (tavi reglage serveur, tavi rejoindre)"
tavi reglage serveur "http://127.0.0.1:$port"
tavi rejoindre "$code" 2> "$dossier/rejoindre.log" || { cat "$dossier/rejoindre.log"; exit 1; }

titre "L'agent tourne sans fenêtre (tavi-home --sans-interface) : une ligne par changement"
"$build/src/app/tavi-home" --sans-interface \
    > >(tee "$dossier/etat.jsonl" | sed -u 's/^/    état  /') 2> "$dossier/agent.log" &
agent=$!
ligne="$(attendre 0 10 '"relie":true')"

titre "Les parents donnent une pause de 15 minutes (au plus un battement, 30 s)"
famille pause Léa 15 --titre Goûter
ligne="$(attendre "$ligne" 45 '"motif":"pause"')"

titre "Les parents lèvent la pause"
famille fin-pause Léa
ligne="$(attendre "$ligne" 45 '"voile":null')"

titre "Ce que voient les parents"
famille rapport Léa
famille demandes Léa | grep . || echo "(aucune demande en attente)"

titre "L'agent s'arrête (SIGTERM) et le signale"
kill "$agent"
wait "$agent" || true
agent=""
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
