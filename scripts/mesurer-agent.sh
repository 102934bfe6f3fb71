#!/usr/bin/env bash
# What the running agent costs beside the bare Qt loop it is built on: both run side by side for
# DUREE seconds (300 by default) under /usr/bin/time -v, the agent paired with a family served
# by tavi-famille on loopback, headless, with its state in a temporary folder. Prints the CPU
# time and the largest resident size of each, and the agent's ratios to the bare loop.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
duree="${DUREE:-300}"
build="${TAVI_BUILD:-$racine/build}"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target tavi tavi-home tavi-famille boucle_nue > /dev/null

dossier="$(mktemp -d)"
pids=()
nettoyer() {
    for p in "${pids[@]}"; do kill "$p" 2> /dev/null || true; done
    wait 2> /dev/null || true
    rm -rf "$dossier"
}
trap nettoyer EXIT
export XDG_STATE_HOME="$dossier/etat" XDG_CONFIG_HOME="$dossier/config"
# No service manager answers in a runtime folder of its own: the login agent is an XDG entry.
export DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent XDG_RUNTIME_DIR="$dossier/execution"
mkdir -m 700 "$XDG_RUNTIME_DIR"
famille() { "$build/famille/tavi-famille" --base "$dossier/famille.db" "$@" > /dev/null; }
famille enfant ajouter Léa --fuseau Europe/Paris
famille limite Léa 90
famille plage Léa lu-ve 08:30 16:30 --familles jeux,videos --cause ecole --titre École
famille limite-appli Léa jeux Jeux 45 steam org.prismlauncher.PrismLauncher
famille rapports Léa applis on
code="$("$build/famille/tavi-famille" --base "$dossier/famille.db" code Léa \
    | sed -n 's/.*"code": *"\([^"]*\)".*/\1/p')"
"$build/famille/tavi-famille" --base "$dossier/famille.db" servir --adresse 127.0.0.1:0 \
    > "$dossier/serveur.out" &
pids+=($!)
for _ in $(seq 50); do [ -s "$dossier/serveur.out" ] && break; sleep 0.1; done
port="$(sed -n 's/.*"port": *\([0-9]*\).*/\1/p' "$dossier/serveur.out")"
"$build/src/outils/tavi" reglage serveur "http://127.0.0.1:$port"
"$build/src/outils/tavi" rejoindre "$code" > /dev/null 2> "$dossier/rejoindre.err" \
    || { cat "$dossier/rejoindre.err"; exit 1; }

# time(1) does not pass signals on: the measured program is stopped through its own PID.
lancer() {
    /usr/bin/time -v -o "$dossier/$1.temps" "${@:2}" > "$dossier/$1.out" 2> "$dossier/$1.err" &
    pids+=($!)
}
lancer agent "$build/src/app/tavi-home" --sans-interface
lancer nue "$build/bench/boucle_nue"
echo "agent et boucle nue côte à côte pendant $duree s…"
sleep "$duree"
for p in "${pids[@]:1}"; do pkill -TERM -P "$p" || true; done
for p in "${pids[@]:1}"; do wait "$p" || true; done

valeur() { sed -n "s/^\s*$2: *//p" "$dossier/$1.temps"; }
cpu() { awk -v u="$(valeur "$1" 'User time (seconds)')" \
    -v s="$(valeur "$1" 'System time (seconds)')" 'BEGIN { printf "%.2f", u + s }'; }
rss() { valeur "$1" 'Maximum resident set size (kbytes)'; }
printf '%-12s %10s %14s\n' "" "CPU (s)" "RSS max (Ko)"
printf '%-12s %10s %14s\n' agent "$(cpu agent)" "$(rss agent)"
printf '%-12s %10s %14s\n' "boucle nue" "$(cpu nue)" "$(rss nue)"
awk -v ca="$(cpu agent)" -v cn="$(cpu nue)" -v ma="$(rss agent)" -v mn="$(rss nue)" 'BEGIN {
    printf "rapports : CPU %s, mémoire %.2f\n", (cn > 0 ? sprintf("%.2f", ca / cn) : "∞"), ma / mn }'
echo "lignes d'état de l'agent : $(wc -l < "$dossier/agent.out")"
