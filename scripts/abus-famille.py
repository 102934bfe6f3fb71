#!/usr/bin/env python3
"""Measures tavi-famille under abuse from loopback addresses only, bounded in count and time:
RSS with N unfinished 1 MiB bodies (bad token, then a good one), a real heartbeat's latency while
512 bodies of 1 MiB JSON with a bad token are posted, and how many of 20 new heartbeats are
turned away while 3,200 silent connections from 100 addresses fill the server (cap 3,200).
Everything goes to 127.0.0.0/8 and stops by itself within a minute or so. Needs a descriptor limit of 16,000 for this process (raised here when allowed).
    scripts/abus-famille.py build/famille/tavi-famille      (N=1000 par défaut)"""
import json, os, resource, shutil, socket, statistics, subprocess, sys, tempfile, threading, time

exe = sys.argv[1]
N = int(os.environ.get("N", "1000"))
try:
    resource.setrlimit(resource.RLIMIT_NOFILE, (16000, 16000))
except (ValueError, OSError):
    sys.exit("abus-famille: il faut pouvoir ouvrir 16 000 descripteurs (ulimit -n)")
dossier = tempfile.mkdtemp()
base = dossier + "/famille.db"


def famille(*a):
    return subprocess.run([exe, "--base", base, *a], check=True, capture_output=True, text=True).stdout


def demarrer(nofile=None):
    limite = (lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (nofile, nofile))) if nofile else None
    p = subprocess.Popen([exe, "--base", base, "servir", "--adresse", "127.0.0.1:0"],
                         stdout=subprocess.PIPE, text=True, preexec_fn=limite)
    return p, json.loads(p.stdout.readline())["port"]


def memoire(p):
    champs = dict(l.split(":", 1) for l in open(f"/proc/{p.pid}/status"))
    return int(champs["VmRSS"].split()[0]) // 1024, int(champs["VmHWM"].split()[0]) // 1024


def prise(port, source="127.0.0.1", delai=5.0):
    s = socket.socket()
    s.bind((source, 0))
    s.settimeout(delai)
    s.connect(("127.0.0.1", port))
    return s


def requete(chemin, corps, jeton, longueur=None):
    longueur = len(corps) if longueur is None else longueur
    return (f"POST {chemin} HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer {jeton}\r\n"
            f"Content-Type: application/json\r\nContent-Length: {longueur}\r\n\r\n").encode() + corps


def statut(s):
    try:
        r = s.recv(65536)
        return int(r[9:12]) if r.startswith(b"HTTP/1.1 ") else -1
    except OSError:
        return -1


famille("enfant", "ajouter", "Abus", "--fuseau", "Europe/Paris")
serveur, port = demarrer()
code = json.loads(famille("code", "Abus"))["code"]
s = prise(port)
s.sendall(b"POST /api/auth/ordinateur HTTP/1.1\r\nHost: x\r\nX-Tavi-Installation: abus\r\n"
          b"Content-Type: application/json\r\nConnection: close\r\nContent-Length: %d\r\n\r\n%s" %
          (len(c := json.dumps({"code": code, "nom": "PC", "version": "0.1.0"}).encode()), c))
reponse = b""
while (m := s.recv(65536)):
    reponse += m
jeton = json.loads(reponse.split(b"\r\n\r\n", 1)[1])["jeton"]
battement = json.dumps({"actif": True, "incertain": False, "plateforme": "linux", "version": "0.1.0",
                        "systeme": "Debian 12", "utilise_jour_min": 1,
                        "autorisations": {"ouverture_session": True, "automatisation": True}}).encode()


def vrai_battement():
    debut = time.monotonic()
    s = prise(port, delai=30)
    s.sendall(requete("/api/enfant/battement", battement, jeton))
    r = statut(s)
    s.close()
    return r, (time.monotonic() - debut) * 1000


def corps_inacheves(jeton_, n, adresse):
    prises, statuts = [], {}
    corps = b"[" + b" " * (1024 * 1024 - 3) + b"]"  # 1 MiB less its last byte
    for i in range(n):
        s = prise(port, f"127.0.{adresse + i // 30}.{i % 30 + 1}", delai=0.5)
        try:
            s.sendall(requete("/api/enfant/battement", corps, jeton_, 1024 * 1024))
        except OSError:
            pass
        prises.append(s)
    time.sleep(1)
    for s in prises:
        s.settimeout(0.001)
        r = statut(s)
        statuts[r] = statuts.get(r, 0) + 1
    return prises, statuts


print("repos :", "RSS %d Mio (pic %d)" % memoire(serveur))
for nom, j, adresse in (("jeton faux", "faux", 20), ("jeton valide", jeton, 80)):
    prises, statuts = corps_inacheves(j, N, adresse)
    print(f"{N} corps de 1 Mio inachevés, {nom} : RSS %d Mio (pic %d)" % memoire(serveur),
          "réponses", statuts, "battement réel", "%d en %.1f ms" % vrai_battement())
    for s in prises:
        s.close()
    time.sleep(1)

# 512 bodies of 1 MiB JSON with a bad token, 32 at a time, while real heartbeats go by.
gros = json.dumps({"sites": [{"d": "x" * 40, "p": 1, "f": 1, "s": 1}] * 14000}).encode()[:1024 * 1024]
fin = threading.Event()


def inondeur(k):
    for i in range(16):
        try:
            s = prise(port, f"127.0.{140 + k}.{i + 1}", delai=10)
            s.sendall(requete("/api/enfant/battement", gros, "faux"))
            statut(s)
            s.close()
        except OSError:
            pass


fils = [threading.Thread(target=inondeur, args=(k,)) for k in range(32)]
for f in fils:
    f.start()
delais = []
while any(f.is_alive() for f in fils):
    delais.append(vrai_battement()[1])
    time.sleep(0.05)
for f in fils:
    f.join()
print("512 corps JSON de 1 Mio, jeton faux : battement réel médian %.1f ms, pire %.1f ms sur %d" %
      (statistics.median(delais), max(delais), len(delais)))
serveur.terminate()
serveur.wait()

# A cap of 3,200 connections (descriptor limit 3,264), filled by silent connections.
serveur, port = demarrer(nofile=3264)
muettes = []
for a in range(100):
    for i in range(32):
        try:
            muettes.append(prise(port, f"127.0.{200 + a // 50}.{a % 50 + 1}", delai=1))
        except OSError:
            pass
time.sleep(0.5)
resultats = [vrai_battement()[0] for _ in range(20)]
print(f"{len(muettes)} connexions muettes de 100 adresses : {resultats.count(200)}/20 battements "
      f"servis, {resultats.count(-1)} coupés")
for s in muettes:
    s.close()
serveur.terminate()
serveur.wait()
shutil.rmtree(dossier)
