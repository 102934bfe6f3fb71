#!/usr/bin/python3
"""Prints what the idle guardian costs, on the real scene of scene_gardien.py (root): two
paired accounts, each with its session on its own Xvfb and its agent, the guardian's CPU share
over S seconds (60) and its resident memory. The latency the relay adds is
bench/relais_bench.cpp's.
Usage: mesurer-gardien.py BUILD [S]"""
import json
import os
import pwd
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from scene_gardien import Manque, Scene, attendre, entrer_espace_prive  # noqa: E402


def temps_cpu(pid):
    with open(f"/proc/{pid}/stat") as f:
        champs = f.read().rsplit(")", 1)[1].split()
    return (int(champs[11]) + int(champs[12])) / os.sysconf("SC_CLK_TCK")


SECOND = "tavienfant2"


def second_compte(scene):
    """A second child with a session of its own on seat1 and its own Xvfb, paired through the
    relay as that user: the guardian watches two accounts."""
    import dbus
    try:
        e = pwd.getpwnam(SECOND)
    except KeyError:
        subprocess.run(["useradd", "-m", SECOND], check=True)
        e = pwd.getpwnam(SECOND)
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"mode=0700,uid={e.pw_uid},gid={e.pw_gid}",
                    "tmpfs", e.pw_dir], check=True)
    execution = f"/run/user/{e.pw_uid}"
    os.mkdir(execution, 0o700)
    os.chown(execution, e.pw_uid, e.pw_gid)
    lu, ecrit = os.pipe()
    scene._lancer("xvfb2", ["Xvfb", "-displayfd", str(ecrit), "-screen", "0", "1024x768x24",
                            "-nolisten", "tcp", "-noreset"], pass_fds=[ecrit])
    os.close(ecrit)
    with os.fdopen(lu) as f:
        affichage = ":" + f.readline().strip()
    comme = ["setpriv", f"--reuid={e.pw_uid}", f"--regid={e.pw_gid}", "--init-groups", "--"]
    # A session bus that activates nothing, as the first child's: the secret goes to its file.
    if not scene.bus_prive("bus2", "session", f"{execution}/bus", """  <policy context="default">
    <allow send_destination="*"/>
    <allow own="*"/>
  </policy>""", comme=comme):
        sys.exit("mesurer-gardien : le bus de session du second compte n'a pas démarré")
    chef = scene._lancer("chef2", comme + ["sleep", "infinity"])
    logind = scene.bus.get_object("org.freedesktop.login1", "/org/freedesktop/login1")
    chemin = logind.AddSession("c2", "seat1", dbus.UInt32(e.pw_uid), SECOND, True,
                               dbus_interface="org.freedesktop.DBus.Mock")
    scene.bus.get_object("org.freedesktop.login1", chemin).UpdateProperties(
        "org.freedesktop.login1.Session",
        {"Type": "x11", "Display": affichage, "Leader": dbus.UInt32(chef.pid)},
        dbus_interface="org.freedesktop.DBus.Mock")
    scene.famille("enfant", "ajouter", "Tom", "--fuseau", "Europe/Paris")
    code = json.loads(scene.famille("code", "Tom").splitlines()[0])["code"]
    env = {"HOME": e.pw_dir, "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8",
           "XDG_RUNTIME_DIR": execution, "TAVI_RELAIS": scene.relais, "DISPLAY": affichage,
           "DBUS_SESSION_BUS_ADDRESS": f"unix:path={execution}/bus"}
    r = subprocess.run(comme + [scene.binaires["tavi"], "rejoindre", code], env=env,
                       cwd=e.pw_dir, capture_output=True, text=True, timeout=60)
    if r.returncode != 0:
        sys.exit(f"mesurer-gardien : second compte non relié : {r.stdout} {r.stderr}")
    return e.pw_uid


def agents_de(scene, uid):
    """The agent processes of `uid`."""
    trouves = []
    for nom in filter(str.isdigit, os.listdir("/proc")):
        try:
            if (os.stat(f"/proc/{nom}").st_uid == uid and os.readlink(f"/proc/{nom}/exe")
                    == scene.binaires["agent"]):
                trouves.append(int(nom))
        except OSError:
            pass
    return trouves


def main():
    if len(sys.argv) not in (2, 3):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    secondes = int(sys.argv[2]) if len(sys.argv) == 3 else 60
    try:
        entrer_espace_prive()
        scene = Scene(sys.argv[1])
        scene.monter()
    except Manque as e:
        sys.exit(f"mesurer-gardien : {e}")
    try:
        scene.relier()
        uid2 = second_compte(scene)
        if not attendre(scene.agents, 30) or not attendre(lambda: agents_de(scene, uid2), 30):
            sys.exit("mesurer-gardien : pas deux agents\n" + scene.journal("gardien"))
        time.sleep(10)  # past the agent's start and its first heartbeat
        pids = {"gardien": scene.gardien.pid, "agent": scene.agents()[-1]}
        debut, t0 = {n: temps_cpu(p) for n, p in pids.items()}, time.monotonic()
        time.sleep(secondes)
        duree = time.monotonic() - t0
        # The agent's own share beside the guardian's: its heartbeats go through the relay,
        # and its presence writes one byte every 2 s.
        for nom, pid in pids.items():
            part = (temps_cpu(pid) - debut[nom]) / duree * 100
            with open(f"/proc/{pid}/status") as f:
                memoire = dict(l.split(":", 1) for l in f if l.startswith("Vm"))
            print(f"{nom} au repos {secondes} s (deux comptes reliés, leurs agents présents) : "
                  f"CPU {part:.3f} %  RSS {memoire['VmRSS'].strip()}  "
                  f"pic {memoire['VmHWM'].strip()}")
    finally:
        scene.demonter()


if __name__ == "__main__":
    main()
