#!/usr/bin/env bash
# The main job, for now: builds the diagnostic tool and shows the rule in force through a
# school day of the sample rule set (Paris time).
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
"$racine/scripts/installer-dependances.sh"

build="${TAVI_BUILD:-$racine/build}"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target tavi > /dev/null
tavi="$build/src/outils/tavi"
consigne="$racine/exemples/consigne.json"

export TZ=Europe/Paris
for heure in 07:30 10:00 17:15 19:00 21:30; do
    ms=$(( $(date -d "2026-11-23 $heure" +%s) * 1000 ))
    printf 'lundi 23 novembre %s  ' "$heure"
    "$tavi" regle --maintenant "$ms" "$consigne"
done
ms=$(( $(date -d "2026-11-23 19:00" +%s) * 1000 ))
printf 'à 19:00, 50 min de plus sur ce compte : '
"$tavi" regle --maintenant "$ms" --utilise-depuis-consigne 3000 "$consigne"
printf 'à 19:00, steam après 40 min (et 12,5 ailleurs) : '
"$tavi" sieste --maintenant "$ms" --appli steam --usage steam=2400 "$consigne"
