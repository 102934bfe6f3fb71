# Extracts the lookup keys of the child's texts from src/ into a message template.
#   cmake -DSOURCES=<project folder> -DSORTIE=<file.pot> -DTRAVAIL=<scratch folder>
#         -DXGETTEXT=... -DMSGGREP=... -DMSGCAT=... -DVERSION=... -P extraire.cmake
# The build's `tavi_pot` target runs it on po/tavi-home.pot; the catalogue test runs it on a
# copy, to find the texts that po/en.po does not translate yet.

foreach(variable SOURCES SORTIE TRAVAIL XGETTEXT MSGGREP MSGCAT VERSION)
    if(NOT DEFINED ${variable})
        message(FATAL_ERROR "extraire.cmake needs -D${variable}=...")
    endif()
endforeach()

file(REMOVE_RECURSE "${TRAVAIL}")
file(GLOB_RECURSE fichiers RELATIVE "${SOURCES}"
    "${SOURCES}/src/*.cpp" "${SOURCES}/src/*.h" "${SOURCES}/src/*.mm")
list(SORT fichiers)

# The defaults store and the D-Bus readers have members named texte too, whose arguments are
# keys of their own ("serveur", "ActiveState"): those calls are renamed in a copy of the sources
# that xgettext reads under the same relative names.
foreach(fichier IN LISTS fichiers)
    file(READ "${SOURCES}/${fichier}" contenu)
    string(REGEX REPLACE "(\\.|->)texte\\(" "\\1valeurTexte(" contenu "${contenu}")
    file(WRITE "${TRAVAIL}/${fichier}" "${contenu}")
endforeach()
string(REPLACE ";" "\n" liste "${fichiers}")
file(WRITE "${TRAVAIL}/fichiers.txt" "${liste}\n")

set(communs --from-code=UTF-8 --language=C++ --add-location=file --package-name=tavi-home
    "--package-version=${VERSION}" --msgid-bugs-address=equipe@tavi.invalid)

# The lookups themselves, and the few helpers that pass their argument on to one. texteAvec's
# and avecHeures' keys are formats: msgfmt then checks that a translation keeps their
# placeholders.
execute_process(
    COMMAND "${XGETTEXT}" ${communs} -k --keyword=texte --keyword=texteAvec
        --keyword=avecHeures --keyword=qt --keyword=titre --keyword=voient:2
        --flag=texteAvec:1:objc-format --flag=avecHeures:1:c-format
        -f fichiers.txt -o appels.pot
    WORKING_DIRECTORY "${TRAVAIL}" RESULT_VARIABLE echec)
if(echec)
    message(FATAL_ERROR "xgettext failed on the lookups")
endif()

# The keys that are chosen before their lookup: the platform's texts, the lines of what the
# parents can see and the wake lines. In these files every literal holding a space is such a
# key; the others are program names, setting pages and emoji.
set(tables src/ui/textes_linux.cpp src/ui/textes_macos.cpp src/ui/ce_que_voient.cpp
    src/ui/contenu_voile.cpp)
execute_process(
    COMMAND "${XGETTEXT}" ${communs} --extract-all ${tables} -o tables_brutes.pot
    WORKING_DIRECTORY "${TRAVAIL}" RESULT_VARIABLE echec ERROR_QUIET)
if(NOT echec)
    execute_process(COMMAND "${MSGGREP}" --msgid "--regexp= " tables_brutes.pot -o tables.pot
        WORKING_DIRECTORY "${TRAVAIL}" RESULT_VARIABLE echec)
endif()
if(NOT echec)
    execute_process(COMMAND "${MSGCAT}" --use-first appels.pot tables.pot -o "${SORTIE}"
        WORKING_DIRECTORY "${TRAVAIL}" RESULT_VARIABLE echec)
endif()
if(echec)
    message(FATAL_ERROR "extracting the texts of ${tables} failed")
endif()

file(READ "${SORTIE}" modele)
string(REGEX REPLACE "^# SOME DESCRIPTIVE TITLE\\.\n# Copyright[^\n]*\n(# This file[^\n]*\n)# FIRST AUTHOR[^\n]*\n"
    "# The texts the child sees; each key is the French text itself.\n\\1" modele "${modele}")
file(WRITE "${SORTIE}" "${modele}")
