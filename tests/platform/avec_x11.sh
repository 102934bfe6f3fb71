#!/bin/sh
# Runs the X11 test program away from the user's display and files: it starts its own Xvfb and
# openbox, and openbox writes its cache and session files under throwaway XDG folders.
set -eu

racine=$(mktemp -d "${TMPDIR:-/tmp}/tavi-x11-XXXXXX")
trap 'rm -rf "$racine"' EXIT
for dossier in maison config cache donnees etat; do
    mkdir -m 700 "$racine/$dossier"
done
export HOME="$racine/maison" XDG_CONFIG_HOME="$racine/config" XDG_CACHE_HOME="$racine/cache" \
    XDG_DATA_HOME="$racine/donnees" XDG_STATE_HOME="$racine/etat"
unset DISPLAY WAYLAND_DISPLAY XAUTHORITY

statut=0
"$@" || statut=$?
exit "$statut"
