#!/usr/bin/python3
"""Run as the child: replaces the agent by a heartbeat loop of its own, sending the family
server directly every token-looking string the child can find (the placeholder "gardien",
every word of its home and runtime folder). Prints each try; exit 1 when any was not 401.
Usage: gardien_boucle.py ADRESSE"""
import http.client
import os
import re
import sys
import urllib.parse

adresse = urllib.parse.urlsplit(sys.argv[1])
candidats = {"gardien"}
for racine in (os.environ["HOME"], os.environ["XDG_RUNTIME_DIR"]):
    for haut, _, fichiers in os.walk(racine):
        for nom in fichiers:
            try:
                with open(os.path.join(haut, nom), "rb") as f:
                    texte = f.read(1 << 20)
            except OSError:
                continue
            candidats.update(m.decode() for m in re.findall(rb"[A-Za-z0-9_.~+/=-]{6,200}", texte))

acceptes = []
for i, candidat in enumerate(sorted(candidats)[:2000]):
    c = http.client.HTTPConnection(adresse.hostname, adresse.port, timeout=5)
    c.request("POST", "/api/enfant/battement", body='{"utilise_min":0}',
              headers={"Authorization": f"Bearer {candidat}", "Content-Type": "application/json"})
    statut = c.getresponse().status
    c.close()
    if candidat == "gardien" or statut != 401:
        print(candidat, statut)
    if statut != 401:
        acceptes.append(candidat)
print(f"{len(candidats)} essais")
sys.exit(1 if acceptes else 0)
