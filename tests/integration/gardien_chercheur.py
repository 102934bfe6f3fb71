#!/usr/bin/python3
"""Run as the child: looks for the token read on stdin in everything the child can read (its
home, its runtime folder, the scene's folder, the guardian's usual places, /tmp, every
process's environment and command line, the guardian's and the agents' memory) and in the
relay's answers to any request. Exit 1 and say where when found.
Usage: gardien_chercheur.py RELAIS DOSSIER PID_GARDIEN [PID_AGENT...]"""
import os
import socket
import sys

jeton = sys.stdin.read().strip().encode()
relais, dossier, gardien, agents = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
trouve, lus = [], 0


def examiner(ou, donnees):
    if jeton in donnees:
        trouve.append(ou)


def lire(chemin, plafond=8 << 20):
    global lus
    try:
        if not os.path.isfile(chemin) or os.path.getsize(chemin) > plafond:
            return
        with open(chemin, "rb") as f:
            examiner(chemin, f.read())
        lus += 1
    except OSError:
        pass


racines = [os.environ["HOME"], os.environ["XDG_RUNTIME_DIR"], dossier, os.path.dirname(relais),
           "/run/tavi-home", "/var/lib/tavi-home", "/etc/tavi-home", "/tmp"]
for racine in racines:
    for haut, _, fichiers in os.walk(racine):
        for nom in fichiers:
            lire(os.path.join(haut, nom))

moi = str(os.getpid())
for pid in os.listdir("/proc"):
    if pid.isdigit() and pid != moi:
        for quoi in ("environ", "cmdline"):
            lire(f"/proc/{pid}/{quoi}")

for pid in [gardien] + agents:
    try:
        with open(f"/proc/{pid}/maps") as cartes, open(f"/proc/{pid}/mem", "rb") as memoire:
            for ligne in cartes:
                debut, fin = (int(x, 16) for x in ligne.split()[0].split("-"))
                if ligne.split()[1].startswith("r"):
                    try:
                        memoire.seek(debut)
                        examiner(f"/proc/{pid}/mem", memoire.read(fin - debut))
                    except (OSError, OverflowError, ValueError):
                        pass
        lus += 1
    except OSError:
        pass

# The relay, asked everything a child could think of.
demandes = [
    b"GET /gardien/etat HTTP/1.1\r\nHost: x\r\n\r\n",
    b"POST /api/auth/ordinateur HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}",
    b"POST /api/enfant/battement HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
    b"Content-Length: 2\r\n\r\n{}",
    b"GET /api/enfant/consigne HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer gardien\r\n\r\n",
    b"GET /api/../gardien/etat HTTP/1.1\r\nHost: x\r\n\r\n",
    b"GET http://127.0.0.1/gardien/etat HTTP/1.1\r\nHost: x\r\n\r\n",
    b"POST /gardien/presence HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n",
    b"GET /api/enfant/battement HTTP/1.1\r\nHost: x\r\nX-Tavi-Jeton: ?\r\n\r\n",
]
for demande in demandes:
    s = socket.socket(socket.AF_UNIX)
    s.settimeout(3)
    recu = b""
    try:
        s.connect(relais)
        s.sendall(demande)
        while morceau := s.recv(65536):
            recu += morceau
    except OSError:
        pass
    s.close()
    examiner("relais: " + demande.split(b"\r\n")[0].decode(), recu)

print(f"{lus} fichiers lus")
for ou in trouve:
    print("jeton trouvé :", ou)
sys.exit(1 if trouve else 0)
