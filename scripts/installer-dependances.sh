#!/usr/bin/env bash
# Installs every Debian 12 package the project needs. Idempotent: when everything is already
# there it only checks and says so.
set -euo pipefail
cd "$(dirname "$0")"

mapfile -t paquets < <(grep -v -E '^\s*(#|$)' paquets-debian.txt)

manquants=()
for p in "${paquets[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || manquants+=("$p")
done
if [ ${#manquants[@]} -eq 0 ]; then
    echo "dépendances : toutes installées"
    exit 0
fi

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "dépendances : installation de ${manquants[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${paquets[@]}"
