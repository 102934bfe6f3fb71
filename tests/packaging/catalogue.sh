#!/usr/bin/env bash
# The catalogues against the sources: every text of src/ extracted again is in po/tavi-home.pot
# and translated in each catalogue of po/LINGUAS, nothing is left fuzzy, and each translation
# keeps its key's placeholders (texteAvec puts the value at the first "%@" or "%d").
#   catalogue.sh CMAKE SOURCES VERSION
set -euo pipefail
cmake="$1" sources="$2" version="$3"
temporaire="$(mktemp -d "${TMPDIR:-/tmp}/tavi-catalogue-XXXXXX")"
trap 'rm -rf "$temporaire"' EXIT
for outil in xgettext msggrep msgcat msgcmp msgfmt msgexec; do
    command -v "$outil" > /dev/null || { echo "SKIPPED: $outil is not installed"; exit 77; }
done
echec() {
    echo "FAILED: $*" >&2
    exit 1
}

"$cmake" -DSOURCES="$sources" -DSORTIE="$temporaire/neuf.pot" -DTRAVAIL="$temporaire/extraction" \
    -DXGETTEXT="$(command -v xgettext)" -DMSGGREP="$(command -v msggrep)" \
    -DMSGCAT="$(command -v msgcat)" -DVERSION="$version" -P "$sources/po/extraire.cmake"

# The same keys both ways: a text added to or gone from src/ since the template was made.
msgcmp --use-untranslated "$sources/po/tavi-home.pot" "$temporaire/neuf.pot" ||
    echec "po/tavi-home.pot lacks texts of src/: cmake --build build --target tavi_pot"
msgcmp --use-untranslated "$temporaire/neuf.pot" "$sources/po/tavi-home.pot" ||
    echec "po/tavi-home.pot holds texts gone from src/: cmake --build build --target tavi_pot"

grep -E '^[a-zA-Z_@]+$' "$sources/po/LINGUAS" | while read -r langue; do
    catalogue="$sources/po/$langue.po"
    msgcmp "$catalogue" "$temporaire/neuf.pot" || echec "$langue.po does not translate every text"
    statistiques="$(msgfmt --check --statistics -o /dev/null "$catalogue" 2>&1)" ||
        echec "$langue.po: $statistiques"
    if grep -Eq 'fuzzy|untranslated' <<< "$statistiques"; then
        echec "$langue.po: $statistiques"
    fi
    # One line per message whose placeholders differ, from msgexec (msgid in the environment,
    # msgstr on standard input).
    marques='%@|%02d|%d'
    ecarts="$(msgexec -i "$catalogue" sh -c '
        [ -z "$MSGEXEC_MSGID" ] && exit 0
        cle="$(printf %s "$MSGEXEC_MSGID" | grep -Eo "$0" | tr "\n" " ")"
        traduction="$(grep -Eo "$0" | tr "\n" " ")"
        [ "$cle" = "$traduction" ] || printf "%s => [%s] instead of [%s]\n" \
            "$MSGEXEC_MSGID" "$traduction" "$cle"' "$marques")"
    [[ -z "$ecarts" ]] || echec "$langue.po changes placeholders: $ecarts"
    echo "$langue.po: $statistiques"
done
