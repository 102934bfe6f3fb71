#!/bin/sh
# Runs a test program on a private session bus with an unlocked GNOME Keyring, in throwaway
# home, data, state and runtime folders, so that the user's own keyring and state are never
# touched. dbus-run-session ends the bus and, with it, the keyring daemon.
# Without dbus-run-session or gnome-keyring-daemon, the program runs with no bus at all and
# TAVI_TROUSSEAU_ABSENT names what is missing, for the tests to skip with that reason.
set -eu

racine=$(mktemp -d "${TMPDIR:-/tmp}/tavi-trousseau-XXXXXX")
trap 'rm -rf "$racine"' EXIT
for dossier in maison donnees etat config cache execution; do
    mkdir -m 700 "$racine/$dossier"
done
export HOME="$racine/maison" XDG_DATA_HOME="$racine/donnees" XDG_STATE_HOME="$racine/etat" \
    XDG_CONFIG_HOME="$racine/config" XDG_CACHE_HOME="$racine/cache" \
    XDG_RUNTIME_DIR="$racine/execution"
unset DBUS_SESSION_BUS_ADDRESS GNOME_KEYRING_CONTROL DISPLAY WAYLAND_DISPLAY

manque=""
command -v dbus-run-session >/dev/null 2>&1 || manque="dbus-run-session (package dbus)"
command -v gnome-keyring-daemon >/dev/null 2>&1 ||
    manque="${manque:+$manque and }gnome-keyring-daemon (package gnome-keyring)"

statut=0
if [ -n "$manque" ]; then
    export TAVI_TROUSSEAU_ABSENT="not installed: $manque"
    export DBUS_SESSION_BUS_ADDRESS="unix:path=$racine/pas-de-bus"
    "$@" || statut=$?
else
    export TAVI_TROUSSEAU_PRIVE="$racine"
    # The daemon reads the login password on its standard input, creates the login keyring
    # with it and leaves it unlocked; what it prints are variables for its clients.
    dbus-run-session -- sh -c '
        set -a
        eval "$(printf "tavi" | gnome-keyring-daemon --unlock --components=secrets)"
        set +a
        exec "$@"' avec_trousseau "$@" || statut=$?
fi
exit "$statut"
