#!/usr/bin/env bash
# The .deb that cpack makes from the build: the same files as `cmake --install`, owned by root,
# its fields (dependencies from dpkg-shlibdeps plus what it cannot see), the guardian's
# configuration as a conffile, then an install into a root of the test's own with dpkg, its
# maintainer scripts enabling the guardian, and its purge forgetting the paired accounts.
#   deb.sh CPACK BUILD SOURCES PREFIX UNITES UNITES_SYSTEME CONFIG "ICON SIZES"
set -euo pipefail
cpack="$1"
shift
source "$(dirname "$0")/commun.sh"
exiger dpkg dpkg-deb dpkg-shlibdeps
case "$prefixe" in
    /usr/local | /usr/local/*) passer "a Debian package cannot install under $prefixe" ;;
esac

"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$temporaire/cpack" \
    > "$temporaire/cpack.log" 2>&1 || { cat "$temporaire/cpack.log"; echec "cpack failed"; }
paquets=("$temporaire"/cpack/tavi-home_*.deb)
[[ ${#paquets[@]} == 1 && -f "${paquets[0]}" ]] || echec "cpack made no tavi-home_*.deb"
deb="${paquets[0]}"

fichiers_attendus > "$temporaire/attendus"
dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { print $2, substr($6, 2) }' > "$temporaire/contenu"
if awk '$1 != "root/root"' "$temporaire/contenu" | grep -q .; then
    echec "files not owned by root: $(awk '$1 != "root/root"' "$temporaire/contenu")"
fi
awk '{ print $2 }' "$temporaire/contenu" | LC_ALL=C sort > "$temporaire/obtenus"
comparer_listes "dpkg-deb -c" "$temporaire/attendus" "$temporaire/obtenus"

champ() { dpkg-deb -f "$deb" "$1"; }
[[ "$(champ Package)" == tavi-home ]] || echec "Package: $(champ Package)"
[[ "$(champ Version)" == "$(basename "$deb" | cut -d_ -f2)" ]] || echec "Version: $(champ Version)"
for champ_requis in Section Maintainer Description Installed-Size; do
    [[ -n "$(champ "$champ_requis")" ]] || echec "no $champ_requis"
done
depend="$(champ Depends)"
noms="$(sed 's/ ([^)]*)//g; s/ | /\n/g; s/, /\n/g' <<< "$depend")"
# From dpkg-shlibdeps: the C++ runtime, Qt (whose libqt6gui6 carries the X11 platform plugin),
# the store, the HTTP client and the time zones (libdate-tz3 brings tzdata).
for paquet in libc6 libstdc++6 libqt6gui6 libqt6widgets6 libsqlite3-0 libcurl4 libdate-tz3; do
    grep -qxF "$paquet" <<< "$noms" || echec "Depends lacks $paquet: $depend"
done
if grep -q -- '-dev$' <<< "$noms"; then echec "Depends names a development package: $depend"; fi
[[ "$(champ Recommends)" == "fonts-comfortaa, fonts-noto-color-emoji, gnome-shell-extension-appindicator | plasma-workspace | xfce4-panel | mate-panel | cinnamon | lxqt-panel | lxpanel" ]] ||
    echec "Recommends: $(champ Recommends)"

dpkg-deb -e "$deb" "$temporaire/controle"
[[ "$(cat "$temporaire/controle/conffiles")" == "$config/tavi-home.conf" ]] ||
    echec "conffiles: $(cat "$temporaire/controle/conffiles" 2>/dev/null)"
for script in preinst postinst prerm postrm; do
    [[ -x "$temporaire/controle/$script" ]] || echec "the package has no executable $script"
done

# A root of our own with an empty package database: dpkg installs there without touching this
# computer's, and purges. The maintainer scripts run outside it (the root holds no shell) with
# DPKG_ROOT naming it, as they do for any install into another root: they enable the guardian
# there and start nothing on this computer.
racine="$temporaire/racine"
mkdir -p "$racine/var/lib/dpkg/info" "$racine/var/lib/dpkg/updates" "$racine/var/lib/dpkg/triggers"
touch "$racine/var/lib/dpkg/status" "$racine/var/lib/dpkg/available"
installer=(dpkg --root="$racine" --log="$temporaire/dpkg.log" --force-depends
    --force-script-chrootless)
# What the scripts keep of the units' state, outside the package's files.
etat_unites='^/var/lib/(dpkg|systemd)/|^/etc/systemd/'

# First an earlier package, whose system-wide autostart entry the upgrade must remove.
ancien="$temporaire/ancien" entree=/etc/xdg/autostart/com.tavi.home.desktop
mkdir -p "$ancien/DEBIAN" "$ancien$(dirname "$entree")"
echo '[Desktop Entry]' > "$ancien$entree"
echo "$entree" > "$ancien/DEBIAN/conffiles"
printf 'Package: tavi-home\nVersion: 0.0.1\nArchitecture: %s\nMaintainer: x <x@x.invalid>\nDescription: x\n' \
    "$(dpkg --print-architecture)" > "$ancien/DEBIAN/control"
dpkg-deb -b "$ancien" "$temporaire/ancien.deb" > /dev/null
"${installer[@]}" --install "$temporaire/ancien.deb" > "$temporaire/dpkg-ancien.log" 2>&1 ||
    { cat "$temporaire/dpkg-ancien.log"; echec "dpkg --install of the earlier package failed"; }
"${installer[@]}" --install "$deb" > "$temporaire/dpkg-install.log" 2>&1 ||
    { cat "$temporaire/dpkg-install.log"; echec "dpkg --install failed"; }
statut="$(dpkg --root="$racine" -s tavi-home | sed -n 's/^Status: //p')"
[[ "$statut" == "install ok installed" ]] || echec "package status after install: $statut"
fichiers_sous "$racine" "$etat_unites" > "$temporaire/installes"
comparer_listes "dpkg --install" "$temporaire/attendus" "$temporaire/installes"
lien="$racine/etc/systemd/system/multi-user.target.wants/tavi-gardien.service"
[[ "$(readlink "$lien")" == "$systeme/tavi-gardien.service" ]] ||
    echec "the guardian is not enabled at boot: $(ls -l "$lien" 2>&1)"

# An account paired since: the purge forgets it with the rest of the guardian's state.
mkdir -p "$racine/var/lib/tavi-home/comptes"
echo '{}' > "$racine/var/lib/tavi-home/comptes/1001.json"

"${installer[@]}" --purge tavi-home > "$temporaire/dpkg-purge.log" 2>&1 ||
    { cat "$temporaire/dpkg-purge.log"; echec "dpkg --purge failed"; }
fichiers_sous "$racine" '^/var/lib/dpkg/' > "$temporaire/restes"
[[ ! -s "$temporaire/restes" ]] || echec "left after the purge: $(cat "$temporaire/restes")"
echo "deb: $(basename "$deb"), $(stat -c %s "$deb") bytes, Installed-Size $(champ Installed-Size) KiB"
