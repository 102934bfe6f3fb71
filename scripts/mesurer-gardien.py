#!/usr/bin/python3
"""Prints what the idle guardian costs, on the real scene of scene_gardien.py (root): one
paired account whose agent runs on Xvfb, the guardian's CPU share over S seconds (60) and its
resident memory. The latency the relay adds is bench/relais_bench.cpp's.
Usage: mesurer-gardien.py BUILD [S]"""
import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from scene_gardien import Manque, Scene, attendre, entrer_espace_prive  # noqa: E402


def temps_cpu(pid):
    with open(f"/proc/{pid}/stat") as f:
        champs = f.read().rsplit(")", 1)[1].split()
    return (int(champs[11]) + int(champs[12])) / os.sysconf("SC_CLK_TCK")


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
        if not attendre(scene.agents, 30):
            sys.exit("mesurer-gardien : aucun agent\n" + scene.journal("gardien"))
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
            print(f"{nom} au repos {secondes} s (un compte relié, son agent présent) : "
                  f"CPU {part:.3f} %  RSS {memoire['VmRSS'].strip()}  "
                  f"pic {memoire['VmHWM'].strip()}")
    finally:
        scene.demonter()


if __name__ == "__main__":
    main()
