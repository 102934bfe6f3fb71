#!/usr/bin/python3
"""Prints what the guardian costs, on the real scene of scene_gardien.py (root):
  mesurer-gardien.py BUILD latence [N]   heartbeats to a local tavi-famille, N (1000) through the
                                         relay as the paired child and N direct with the token:
                                         median and p99 of each, side by side;
  mesurer-gardien.py BUILD repos [S]     the guardian idle for S (60) seconds with one paired
                                         account and its agent running on Xvfb: CPU % and RSS.
Each request is a new connection, as the agent makes them through the relay."""
import http.client
import os
import socket
import statistics
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from scene_gardien import Manque, Scene, attendre, entrer_espace_prive  # noqa: E402

CORPS = (b'{"actif":true,"incertain":false,"plateforme":"linux","version":"mesure",'
         b'"utilise_jour_min":1,"autorisations":{}}')


def par_relais(chemin):
    s = socket.socket(socket.AF_UNIX)
    s.connect(chemin)
    s.sendall(b"POST /api/enfant/battement HTTP/1.1\r\nHost: tavi-gardien\r\n"
              b"Content-Type: application/json\r\nContent-Length: %d\r\n\r\n%s"
              % (len(CORPS), CORPS))
    recu = b""
    while morceau := s.recv(65536):
        recu += morceau
    s.close()
    return int(recu.split(b" ", 2)[1])


def en_direct(port, jeton):
    c = http.client.HTTPConnection("127.0.0.1", port)
    c.request("POST", "/api/enfant/battement", body=CORPS,
              headers={"Authorization": f"Bearer {jeton}", "Content-Type": "application/json",
                       "Connection": "close"})
    statut = c.getresponse().status
    c.close()
    return statut


def chronometrer(envoyer, nombre):
    """The duration of each send in ms; stops at the first refusal (its status and count)."""
    durees = []
    for _ in range(nombre):
        debut = time.perf_counter()
        statut = envoyer()
        if statut != 200:
            return durees, statut
        durees.append((time.perf_counter() - debut) * 1000)
    return durees, 200


def resume(nom, durees, statut):
    if not durees:
        return f"{nom:8} aucun battement accepté (statut {statut})"
    durees = sorted(durees)
    p99 = durees[min(len(durees) - 1, int(len(durees) * 0.99))]
    fin = "" if statut == 200 else f" (arrêt au statut {statut})"
    return (f"{nom:8} n={len(durees):5}  médiane {statistics.median(durees):7.3f} ms  "
            f"p99 {p99:7.3f} ms{fin}")


def latence(scene, nombre):
    jeton = scene.relier()
    r = scene.enfant([sys.executable, os.path.abspath(__file__), "--client", scene.relais,
                      str(nombre)], text=True, timeout=3600)
    print(r.stdout, end="")
    durees, statut = chronometrer(lambda: en_direct(scene.port, jeton), nombre)
    print(resume("direct", durees, statut))


def repos(scene, secondes):
    scene.relier()
    if not attendre(scene.agents, 30):
        raise RuntimeError("no agent:\n" + scene.journal("gardien"))
    time.sleep(10)  # past the agent's start and first heartbeat
    pid = scene.gardien.pid

    def cpu():
        with open(f"/proc/{pid}/stat") as f:
            champs = f.read().rsplit(")", 1)[1].split()
        return (int(champs[11]) + int(champs[12])) / os.sysconf("SC_CLK_TCK")
    debut, t0 = cpu(), time.monotonic()
    time.sleep(secondes)
    part = (cpu() - debut) / (time.monotonic() - t0) * 100
    with open(f"/proc/{pid}/status") as f:
        memoire = {l.split(":")[0]: l.split(":")[1].strip() for l in f if l.startswith("Vm")}
    print(f"gardien au repos {secondes} s, un compte relié, son agent présent : "
          f"CPU {part:.3f} %  RSS {memoire['VmRSS']}  pic {memoire['VmHWM']}")


def main():
    if len(sys.argv) >= 4 and sys.argv[1] == "--client":
        durees, statut = chronometrer(lambda: par_relais(sys.argv[2]), int(sys.argv[3]))
        print(resume("relais", durees, statut))
        return
    if len(sys.argv) < 3 or sys.argv[2] not in ("latence", "repos"):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    try:
        entrer_espace_prive()
        scene = Scene(sys.argv[1], graphique=sys.argv[2] == "repos")
        scene.monter()
    except Manque as e:
        sys.exit(f"mesurer-gardien : {e}")
    try:
        quantite = int(sys.argv[3]) if len(sys.argv) > 3 else None
        if sys.argv[2] == "latence":
            latence(scene, quantite or 1000)
        else:
            repos(scene, quantite or 60)
    finally:
        scene.demonter()


if __name__ == "__main__":
    main()
