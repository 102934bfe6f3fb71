# What the Xvfb scripts share, sourced after they set `racine` and `build`: a temporary folder
# for everything the agent and the family server keep (removed at exit with every process in
# `pids`), no session bus and an XDG login agent, so the user's own session is never touched.
dossier="$(mktemp -d)"
pids=()
nettoyer() {
    for pid in "${pids[@]}"; do kill "$pid" 2> /dev/null && wait "$pid" 2> /dev/null || true; done
    rm -rf "$dossier"
}
trap nettoyer EXIT
export XDG_STATE_HOME="$dossier/etat" XDG_CONFIG_HOME="$dossier/config"
export DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent
# The agent's place among its copies lives here too: a copy the user runs is never found.
export XDG_RUNTIME_DIR="$dossier/execution"
mkdir -m 700 "$XDG_RUNTIME_DIR"
famille() { "$build/famille/tavi-famille" --base "$dossier/famille.db" "$@"; }
attendre() { # condition, limit in seconds
    for _ in $(seq $(($2 * 20))); do eval "$1" && return 0; sleep 0.05; done
    echo "(rien après $2 s : $1)" >&2
    return 1
}

# Starts an Xvfb with one screen of $1 ("WxHxD") and points DISPLAY at it.
demarrer_xvfb() {
    Xvfb -displayfd 3 -screen 0 "$1" -nolisten tcp -noreset 3> "$dossier/affichage" \
        2> /dev/null &
    pids+=($!)
    attendre '[ -s "$dossier/affichage" ]' 10
    export DISPLAY=":$(cat "$dossier/affichage")"
}

# Serves the family's base on a free loopback port, puts a fresh pairing code for Léa in `code`
# and points the agent's settings at the server.
servir_famille() {
    code="$(famille code Léa | sed -n 's/.*"code": *"\([^"]*\)".*/\1/p')"
    # Not through the function: its pid would be a subshell's, and the server would outlive it.
    "$build/famille/tavi-famille" --base "$dossier/famille.db" servir --adresse 127.0.0.1:0 \
        > "$dossier/serveur.out" &
    pids+=($!)
    attendre '[ -s "$dossier/serveur.out" ]' 10
    local port
    port="$(sed -n 's/.*"port": *\([0-9]*\).*/\1/p' "$dossier/serveur.out")"
    "$build/src/outils/tavi" reglage serveur "http://127.0.0.1:$port"
}

# The agent's full-screen windows now mapped (override-redirect, named "Tavi Home"), one
# "WxH+X+Y" per line.
voiles() {
    xwininfo -root -children | sed -n 's/^ *\(0x[0-9a-f]*\) "Tavi Home".*/\1/p' | while read -r id; do
        info="$(xwininfo -id "$id")"
        grep -q 'IsViewable' <<< "$info" && grep -q 'Override Redirect State: yes' <<< "$info" &&
            awk '/Absolute upper-left X/ { x = $NF } /Absolute upper-left Y/ { y = $NF }
                 /Width:/ { l = $NF } /Height:/ { h = $NF } END { print l "x" h "+" x "+" y }' \
                <<< "$info" || true
    done | sort
}

# The CPU time (s) and largest resident size (kB) that /usr/bin/time -v wrote to $1.
valeur_temps() { sed -n "s/^\s*$2: *//p" "$1"; }
cpu_temps() { awk -v u="$(valeur_temps "$1" 'User time (seconds)')" \
    -v s="$(valeur_temps "$1" 'System time (seconds)')" 'BEGIN { printf "%.2f", u + s }'; }
rss_temps() { valeur_temps "$1" 'Maximum resident set size (kbytes)'; }
