# Sourced by the packaging tests: the arguments they share, a scratch folder, skipping, and
# the files the installation must hold.
#   BUILD SOURCES PREFIX UNITES UNITES_SYSTEME CONFIG "ICON SIZES"
build="$1" sources="$2" prefixe="$3" unites="$4" systeme="$5" config="$6" tailles="$7"
programmes="tavi-home tavi tavi-famille tavi-gardien"
temporaire="$(mktemp -d "${TMPDIR:-/tmp}/tavi-paquet-XXXXXX")"
trap 'rm -rf "$temporaire"' EXIT

# CTest reads status 77 as skipped; the reason goes to the test's output.
passer() {
    echo "SKIPPED: $*"
    exit 77
}

echec() {
    echo "FAILED: $*" >&2
    exit 1
}

exiger() {
    for outil in "$@"; do
        command -v "$outil" > /dev/null || passer "$outil is not installed"
    done
}

# Every file, one absolute path a line, sorted: the programs, the launcher and its icons, the
# metainfo, the catalogues of po/LINGUAS, the manual pages, the licence's notice, the agent's
# user unit, the guardian's system unit and its configuration.
fichiers_attendus() {
    {
        for programme in $programmes; do echo "$prefixe/bin/$programme"; done
        echo "$prefixe/share/applications/com.tavi.home.desktop"
        echo "$prefixe/share/metainfo/com.tavi.home.metainfo.xml"
        echo "$prefixe/share/icons/hicolor/scalable/apps/com.tavi.home.svg"
        for taille in $tailles; do
            echo "$prefixe/share/icons/hicolor/${taille}x${taille}/apps/com.tavi.home.png"
        done
        grep -E '^[a-zA-Z_@]+$' "$sources/po/LINGUAS" | while read -r langue; do
            echo "$prefixe/share/locale/$langue/LC_MESSAGES/tavi-home.mo"
        done
        for programme in $programmes; do echo "$prefixe/share/man/man1/$programme.1.gz"; done
        echo "$prefixe/share/doc/tavi-home/copyright"
        echo "$prefixe/share/doc/tavi-home/NOTICE"
        echo "$unites/com.tavi.home.service"
        echo "$systeme/tavi-gardien.service"
        echo "$config/tavi-home.conf"
    } | LC_ALL=C sort
}

# The files under `racine`, as absolute paths once installed, sorted; `sauf` is a pattern of
# paths to leave out.
fichiers_sous() {
    local racine="$1" sauf="${2:-^$}"
    (cd "$racine" && find . \( -type f -o -type l \) | sed 's|^\.||' | { grep -Ev "$sauf" || true; } |
        LC_ALL=C sort)
}

comparer_listes() {
    local quoi="$1" attendu="$2" obtenu="$3"
    if ! diff -u "$attendu" "$obtenu"; then
        echec "$quoi: the files differ from the expected ones (- expected, + found)"
    fi
}
