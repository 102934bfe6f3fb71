#!/usr/bin/env python3
"""Writes the picture of an X display as PNG: capture-ecran.py DISPLAY FICHIER.png.
Reads the root window with xwd (x11-apps) and converts its 24-bit true-colour dump itself, so
that nothing beyond Python is needed."""
import struct
import subprocess
import sys
import zlib

affichage, sortie = sys.argv[1], sys.argv[2]
brut = subprocess.run(["xwd", "-root", "-silent", "-display", affichage],
                      check=True, capture_output=True).stdout
champs = struct.unpack(">25I", brut[:100])
taille_entete, largeur, hauteur = champs[0], champs[4], champs[5]
octets_par_ligne, couleurs = champs[12], champs[19]
pas = champs[11] // 8
if pas not in (3, 4) or champs[7] != 0:
    sys.exit(f"capture-ecran: {champs[11]} bits par pixel, ordre {champs[7]} : non lu")
debut = taille_entete + 12 * couleurs
lignes = bytearray()
for y in range(hauteur):
    ligne = brut[debut + y * octets_par_ligne: debut + y * octets_par_ligne + pas * largeur]
    lignes.append(0)
    # Least significant byte first: B, G, R (and X).
    rgb = bytearray(3 * largeur)
    rgb[0::3], rgb[1::3], rgb[2::3] = ligne[2::pas], ligne[1::pas], ligne[0::pas]
    lignes += rgb


def morceau(genre, donnees):
    return (struct.pack(">I", len(donnees)) + genre + donnees
            + struct.pack(">I", zlib.crc32(genre + donnees) & 0xFFFFFFFF))


with open(sortie, "wb") as fichier:
    fichier.write(b"\x89PNG\r\n\x1a\n")
    fichier.write(morceau(b"IHDR", struct.pack(">IIBBBBB", largeur, hauteur, 8, 2, 0, 0, 0)))
    fichier.write(morceau(b"IDAT", zlib.compress(bytes(lignes), 6)))
    fichier.write(morceau(b"IEND", b""))
