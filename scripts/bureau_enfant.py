"""The child's desktop on the scene of scene_gardien.py: the veil on the X display, the agent's
store as the child rewrites it, input through xdotool."""
import json
import os
import subprocess
import sys
import threading


class Saisie:
    """The child at the keyboard: a pointer move through xdotool every `pas` seconds, as the
    child, while `active` is set."""

    def __init__(self, scene, pas=1.0):
        self.scene, self.pas = scene, pas
        self.active = threading.Event()
        self.fin = threading.Event()
        self.fil = threading.Thread(target=self._boucle, daemon=True)
        self.fil.start()

    def _boucle(self):
        sens = 1
        while not self.fin.wait(self.pas):
            if self.active.is_set():
                sens = -sens
                self.scene.enfant(["xdotool", "mousemove_relative", "--", str(sens), "0"])

    def arreter(self):
        self.fin.set()
        self.fil.join()


class BureauEnfant:
    """Mixed into the scene, which holds the `affichage`, the child's `maison` and `enfant()`."""

    def voile(self):
        """The id of the agent's veil when one is mapped over the whole screen, else None."""
        env = {"DISPLAY": self.affichage}
        sortie = subprocess.run(["xwininfo", "-root", "-children"], capture_output=True,
                                text=True, env=env).stdout
        for ligne in sortie.splitlines():
            if '"Tavi Home"' in ligne:
                wid = ligne.split()[0]
                info = subprocess.run(["xwininfo", "-id", wid], capture_output=True, text=True,
                                      env=env).stdout
                if "IsViewable" in info and "Width: 1024" in info:
                    return wid
        return None

    def reglages_agent(self):
        return os.path.join(self.maison, ".local/state/tavi-home/reglages.sqlite")

    def reglage_agent(self, cle):
        """A value of the agent's store, read as root without taking part in its writes."""
        import sqlite3
        base = sqlite3.connect(f"file:{self.reglages_agent()}?mode=ro", uri=True, timeout=5)
        try:
            ligne = base.execute("SELECT valeur FROM reglages WHERE cle = ?", (cle,)).fetchone()
        finally:
            base.close()
        return ligne[0] if ligne else None

    def ecrire_reglages_agent(self, valeurs):
        """Rewrites numbers of the agent's store as the child does, with the sqlite3 module."""
        programme = ("import json, sqlite3, sys\n"
                     "b = sqlite3.connect(sys.argv[1], timeout=5)\n"
                     "for cle, v in json.loads(sys.argv[2]).items():\n"
                     "    b.execute('UPDATE reglages SET valeur = ? WHERE cle = ?', (v, cle))\n"
                     "b.commit()\n")
        r = self.enfant([sys.executable, "-c", programme, self.reglages_agent(),
                         json.dumps(valeurs)], text=True)
        if r.returncode != 0:
            raise RuntimeError(f"the child's write failed: {r.stderr}")
