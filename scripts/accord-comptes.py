#!/usr/bin/python3
"""How far the agent's count of the day and the guardian's agree over a scripted session of the
child on the guardian's scene (scripts/scene_gardien.py): input through xdotool, a stretch of
more than 5 minutes without input, a lock through logind (LockedHint and the Lock signal, no
input), a suspend announced by logind (PreparingForSleep and PrepareForSleep, no input), then
input again. Prints each phase, then both counts, the report's figures and their differences.
Not a test: a measure for the record.

Usage: accord-comptes.py [--minutes N] [--build DOSSIER]   (root; exit 77 when a part is missing)
"""
import argparse
import json
import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from scene_gardien import Manque, Saisie, Scene, attendre, entrer_espace_prive  # noqa: E402

SESSION = "org.freedesktop.login1.Session"
# The session's phases, as shares of its length: (name, share, input?). At 30 minutes the idle
# stretch lasts 6: past the 5 minutes after which neither count goes on.
PHASES = [("saisie", 0.15, True), ("inactif", 0.20, False), ("saisie", 0.10, True),
          ("verrou", 0.15, False), ("saisie", 0.10, True), ("veille", 0.10, False),
          ("saisie", 0.20, True)]
INACTIVITE_COMPTEE_S = 300


def minutes(texte):
    try:
        n = float(texte)
    except ValueError:
        raise argparse.ArgumentTypeError(f"not a number of minutes: {texte!r}")
    if not 0.5 <= n <= 240:
        raise argparse.ArgumentTypeError(f"between 0.5 and 240 minutes: {texte}")
    return n


def compte_agent(scene):
    jour, secondes = scene.reglage_agent("compteur_jour"), scene.reglage_agent("compteur_s")
    return jour, secondes or 0.0


def phase(scene, saisie, nom, duree_s, avec_saisie):
    c1 = scene.session_logind("c1")
    if nom == "verrou":
        c1.SetLockedHint(True, dbus_interface=SESSION)
        c1.Lock(dbus_interface=SESSION)
    elif nom == "veille":
        scene.preparer_veille(True)
    if avec_saisie:
        saisie.active.set()
    try:
        time.sleep(duree_s)
    finally:
        saisie.active.clear()
        if nom == "verrou":
            c1.Unlock(dbus_interface=SESSION)
            c1.SetLockedHint(False, dbus_interface=SESSION)
        elif nom == "veille":
            scene.preparer_veille(False)


def main():
    lecteur = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    lecteur.add_argument("--minutes", type=minutes, default=30.0,
                         help="the session's length (30 by default)")
    lecteur.add_argument("--build", default="build", help="the build folder (build)")
    options = lecteur.parse_args()
    if not os.path.isdir(options.build):
        lecteur.error(f"no build folder {options.build}")
    try:
        entrer_espace_prive()
        scene = Scene(options.build)
        scene.monter()
    except Manque as e:
        print(f"SKIPPED: {e}", file=sys.stderr)
        return 77
    saisie = None
    try:
        scene.relier()
        if not attendre(scene.agents, 20):
            raise RuntimeError("no agent started:\n" + scene.journal("gardien"))
        saisie = Saisie(scene)
        debut_agent, debut_gardien = compte_agent(scene)[1], scene.usage_gardien()[1] or 0.0
        attendu = 0.0
        for nom, part, avec_saisie in PHASES:
            duree = options.minutes * 60 * part
            print(f"{time.strftime('%H:%M:%S')} {nom} {duree:.0f} s", flush=True)
            phase(scene, saisie, nom, duree, avec_saisie)
            if avec_saisie:
                attendu += duree
            elif nom == "inactif":
                attendu += min(duree, INACTIVITE_COMPTEE_S)
        # A last heartbeat, so that the report holds both figures of the end.
        scene.reveiller()
        time.sleep(3)
        jour, agent = compte_agent(scene)
        jour_gardien, gardien = scene.usage_gardien()
        ordi = next((l["ordinateur"] for l in scene.rapport() if "ordinateur" in l), {})
        resultat = {
            "minutes": options.minutes, "jour_agent": jour, "jour_gardien": jour_gardien,
            "attendu_s": round(attendu, 1),
            "agent_s": round(agent - debut_agent, 1),
            "gardien_s": round((gardien or 0.0) - debut_gardien, 1),
            "rapport_agent_min": ordi.get("agent_jour_min", ordi.get("utilise_jour_min")),
            "rapport_gardien_min": ordi.get("gardien_jour_min"),
        }
        resultat["gardien_moins_agent_s"] = round(resultat["gardien_s"] - resultat["agent_s"], 1)
        resultat["gardien_moins_attendu_s"] = round(resultat["gardien_s"] - attendu, 1)
        print(json.dumps(resultat, ensure_ascii=False))
        return 0
    finally:
        if saisie:
            saisie.arreter()
        scene.demonter()


if __name__ == "__main__":
    sys.exit(main())
