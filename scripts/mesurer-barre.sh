#!/usr/bin/env bash
# What the windowed agent costs at rest beside a bare Qt tray application: on a virtual display
# (Xvfb, trayer as the notification area), the agent paired with a family served by
# tavi-famille on loopback, its tray icon shown and no veil, and the bare application, side by
# side for DUREE seconds (300 by default) under /usr/bin/time -v. Prints the agent's start-up
# time to its first heartbeat (as the server dates it), the CPU time and the largest resident
# size of each, and the ratios. Everything lives in a temporary folder.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
duree="${DUREE:-300}"
build="${TAVI_BUILD:-$racine/build}"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target tavi tavi-home tavi-famille barre_nue > /dev/null

source "$racine/scripts/xvfb-commun.sh"
nouvelle() { famille rapport Léa | sed -n 's/.*"derniere_nouvelle_ms": *\([0-9]*\).*/\1/p' | head -1; }
famille enfant ajouter Léa --fuseau Europe/Paris > /dev/null
famille limite Léa 90 > /dev/null
famille limite-appli Léa jeux Jeux 45 steam org.prismlauncher.PrismLauncher > /dev/null
servir_famille
"$build/src/outils/tavi" rejoindre "$code" > /dev/null 2> "$dossier/rejoindre.err" ||
    { cat "$dossier/rejoindre.err"; exit 1; }
# What the child saw once: the welcome window stays closed, as on any day after the first.
"$build/src/outils/tavi" reglage --json accord_vu true > /dev/null

demarrer_xvfb 1366x768x24
trayer --edge top --align right --widthtype request --height 24 --SetDockType true \
    > /dev/null 2>&1 &
pids+=($!)
sleep 1

# time(1) does not pass signals on: the measured program is stopped through its own PID.
lancer() {
    /usr/bin/time -v -o "$dossier/$1.temps" "${@:2}" > /dev/null 2> "$dossier/$1.err" &
    pids+=($!)
}
avant="$(nouvelle)"
debut="$(date +%s%3N)"
TAVI_AGENT=1 lancer agent "$build/src/app/tavi-home"
attendre '[ "$(nouvelle)" != "$avant" ]' 15
echo "premier battement $(($(nouvelle) - debut)) ms après le lancement de l'agent"
lancer nue "$build/bench/barre_nue"
echo "agent (icône, sans voile) et application nue côte à côte pendant $duree s…"
sleep "$duree"
for p in "${pids[@]: -2}"; do pkill -TERM -P "$p" || true; done
for p in "${pids[@]: -2}"; do wait "$p" || true; done

cpu() { cpu_temps "$dossier/$1.temps"; }
rss() { rss_temps "$dossier/$1.temps"; }
printf '%-16s %10s %14s\n' "" "CPU (s)" "RSS max (Ko)"
printf '%-16s %10s %14s\n' agent "$(cpu agent)" "$(rss agent)"
printf '%-16s %10s %14s\n' "application nue" "$(cpu nue)" "$(rss nue)"
awk -v ca="$(cpu agent)" -v cn="$(cpu nue)" -v ma="$(rss agent)" -v mn="$(rss nue)" 'BEGIN {
    printf "rapports : CPU %s, mémoire %.2f\n", (cn > 0 ? sprintf("%.2f", ca / cn) : "∞"), ma / mn }'
