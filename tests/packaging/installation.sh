#!/usr/bin/env bash
# `cmake --install` into a DESTDIR of its own: exactly the expected files, their modes, the
# programs free of any path into the build, the catalogues where the programs look, the
# desktop files and metainfo accepted by the freedesktop and AppStream validators, and the
# guardian's unit accepted and judged well confined by systemd-analyze.
set -euo pipefail
source "$(dirname "$0")/commun.sh"
exiger desktop-file-validate appstreamcli readelf systemd-analyze

racine="$temporaire/racine"
DESTDIR="$racine" cmake --install "$build" > "$temporaire/install.log"
fichiers_attendus > "$temporaire/attendus"
fichiers_sous "$racine" > "$temporaire/obtenus"
comparer_listes "cmake --install" "$temporaire/attendus" "$temporaire/obtenus"

while read -r fichier; do
    mode="$(stat -c %a "$racine$fichier")"
    case "$fichier" in
        "$prefixe"/bin/*) attendu=755 ;;
        *) attendu=644 ;;
    esac
    [[ "$mode" == "$attendu" ]] || echec "$fichier has mode $mode, not $attendu"
done < "$temporaire/attendus"

for programme in $programmes; do
    if readelf -d "$racine$prefixe/bin/$programme" | grep -Eq 'R(UN)?PATH'; then
        echec "$programme keeps a library search path: $(readelf -d "$racine$prefixe/bin/$programme" | grep -E 'R(UN)?PATH')"
    fi
done
# The folder the programs bind their catalogues to is the one the catalogues install in.
grep -qaF "$prefixe/share/locale" "$racine$prefixe/bin/tavi-home" ||
    echec "tavi-home does not look for its catalogues in $prefixe/share/locale"

desktop-file-validate "$racine$prefixe/share/applications/com.tavi.home.desktop" ||
    echec "desktop-file-validate refuses the launcher"
appstreamcli validate --no-net "$racine$prefixe/share/metainfo/com.tavi.home.metainfo.xml" ||
    echec "appstreamcli refuses the metainfo"
# The tree as a software centre reads it: the metainfo's launcher and icon found beside it.
appstreamcli validate-tree --no-net --strict "$racine" ||
    echec "appstreamcli refuses the installed tree"
# Each manual page renders without a warning and names every command its program's help lists,
# so a command added to a program is not left out of its page.
for programme in $programmes; do
    page="$racine$prefixe/share/man/man1/$programme.1.gz"
    avertissements="$(zcat "$page" | LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l - 2>&1 >/dev/null)"
    [[ -z "$avertissements" ]] || echec "man warns about $programme(1): $avertissements"
done
commandes() { sed -n 's/^  \(tavi \)\?\([a-z][a-z-]*\)\( .*\)\?$/\2/p' | sort -u; }
pages_commandes() { zcat "$1" | tr -d '\\' | sed -n 's/^\.BR\? "\?\([a-z][a-z-]*\).*/\1/p' | sort -u; }
manquantes="$("$build/src/outils/tavi" --aide 2>&1 | commandes |
    comm -23 - <(pages_commandes "$racine$prefixe/share/man/man1/tavi.1.gz"))"
[[ -z "$manquantes" ]] || echec "tavi(1) lacks the commands: $manquantes"
manquantes="$("$build/famille/tavi-famille" --aide 2>&1 | commandes |
    comm -23 - <(pages_commandes "$racine$prefixe/share/man/man1/tavi-famille.1.gz"))"
[[ -z "$manquantes" ]] || echec "tavi-famille(1) lacks the commands: $manquantes"
# The guardian's help is its own; its page was written from the commands it takes.
manquantes="$("$build/src/gardien/tavi-gardien" --aide 2>&1 | commandes |
    comm -23 - <(pages_commandes "$racine$prefixe/share/man/man1/tavi-gardien.1.gz"))"
[[ -z "$manquantes" ]] || echec "tavi-gardien(1) lacks the commands: $manquantes"

# systemd-analyze reads the unit against the installed tree (--root), which needs the units it
# names: this computer's are copied beside it. It only warns about an unknown key or a bad value,
# so any word from it fails. The exposure it scores drops the unit's confinement into view.
unite="$racine$systeme/tavi-gardien.service"
[[ -d /lib/systemd/system ]] || passer "no systemd units on this computer to verify against"
cp -an /lib/systemd/system/. "$racine$systeme/"
verification="$(systemd-analyze --root="$racine" verify --man=no "$unite" 2>&1)" ||
    echec "systemd-analyze verify refuses the unit: $verification"
[[ -z "$verification" ]] || echec "systemd-analyze verify warns: $verification"
systemd-analyze security --offline=yes --root="$racine" --threshold=35 --no-pager "$unite" \
    > "$temporaire/exposition" 2>&1 ||
    echec "the guardian's unit is too exposed: $(tail -1 "$temporaire/exposition")"
grep -q 'Apache-2.0' "$racine$prefixe/share/doc/tavi-home/copyright" ||
    echec "the copyright file names no licence"

echo "installation: $(wc -l < "$temporaire/attendus") files where they belong"
