"""A computer as a family sets it up, with the guardian in charge, built from real parts: a
private system bus carrying python3-dbusmock's logind, an Xvfb display for the child
`tavienfant`, a `tavi-famille` on a loopback port, `tavi-gardien` as a plain root process, and
the child's session (runtime folder, session bus) in which the guardian starts the agent.

Runs as root in a mount namespace of its own (`entrer_espace_prive`): /run/dbus, /run/user and
the child's home are fresh tmpfs there, so the machine's own are never touched and every run
starts from an empty account. Used by the child's attempts (tests/integration) and by
mesurer-gardien.py."""
import json
import os
import pwd
import shutil
import socket
import subprocess
import sys
import tempfile
import time

from bureau_enfant import BureauEnfant, Saisie  # noqa: F401 (its callers import it from here)
from logind_simule import ENFANT, LOGIND, MOCK, LogindSimule

BUS_SYSTEME = "/run/dbus/system_bus_socket"


class Manque(Exception):
    """Something the scene needs is missing here: the caller skips, saying what."""


def attendre(condition, limite, pas=0.05):
    """The first true value of `condition()` within `limite` seconds, else None."""
    fin = time.monotonic() + limite
    while True:
        valeur = condition()
        if valeur or time.monotonic() >= fin:
            return valeur or None
        time.sleep(pas)


def entrer_espace_prive():
    """Re-runs this program in a private mount namespace (once), where the scene may mount."""
    if os.geteuid() != 0:
        raise Manque("acting as a second user and mounting need root")
    if os.environ.get("TAVI_SCENE_PRIVEE") == "1":
        return
    if not shutil.which("unshare"):
        raise Manque("unshare missing")
    os.environ["TAVI_SCENE_PRIVEE"] = "1"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable]
              + sys.argv)


def _ppid(pid):
    try:
        with open(f"/proc/{pid}/stat") as f:
            return int(f.read().rsplit(")", 1)[1].split()[1])
    except (OSError, IndexError, ValueError):
        return None


def etat_processus(pid):
    """The state letter of /proc/PID/stat (R, S, T, t, Z…), None when the process is gone."""
    try:
        with open(f"/proc/{pid}/stat") as f:
            return f.read().rsplit(")", 1)[1].split()[0]
    except (OSError, IndexError):
        return None


class Scene(LogindSimule, BureauEnfant):
    def __init__(self, build, graphique=True, usage_gardien_s=None):
        self.build = os.path.realpath(build)
        self.graphique = graphique
        # The seconds the guardian already counted today when it starts (a day under way).
        self.usage_gardien_s = usage_gardien_s
        self.binaires = {
            "gardien": f"{self.build}/src/gardien/tavi-gardien",
            "agent": f"{self.build}/src/app/tavi-home",
            "tavi": f"{self.build}/src/outils/tavi",
            "famille": f"{self.build}/famille/tavi-famille",
        }
        self.processus = []
        self.journaux = []
        self.dossier = None
        self.gardien = None

    # --- building it -----------------------------------------------------------------------

    def monter(self):
        """Builds the scene; takes down what was built when a part fails."""
        try:
            self._monter()
        except BaseException:
            self.demonter()
            raise

    def _monter(self):
        self._verifier()
        self.dossier = tempfile.mkdtemp(prefix="tavi-scene-")
        # The child may walk the scene's folder (and does, looking for the token); what is
        # root's alone (the family's base, the logs, the guardian's state) sits below `prive`.
        os.chmod(self.dossier, 0o755)
        self.prive = os.path.join(self.dossier, "prive")
        os.mkdir(self.prive, 0o700)
        os.mkdir(os.path.join(self.dossier, "run"), 0o755)
        self.relais = os.path.join(self.dossier, "run", "relais")
        self.etat_dir = os.path.join(self.prive, "etat")
        self.conf = os.path.join(self.dossier, "tavi-home.conf")
        self._enfant_pret()
        self._monter_systeme()
        self._bus_systeme()
        self._logind()
        if self.graphique:
            self._xvfb()
        self._session_enfant()
        self._famille()
        if self.usage_gardien_s is not None:
            self._usage_du_jour()
        self.demarrer_gardien()

    def _verifier(self):
        for nom, chemin in self.binaires.items():
            if not os.access(chemin, os.X_OK):
                raise Manque(f"{chemin} not built ({nom})")
        outils = ["dbus-daemon", "setpriv", "mount", "curl"]
        if self.graphique:
            outils += ["Xvfb", "xwininfo", "xkill"]
        for outil in outils:
            if not shutil.which(outil):
                raise Manque(f"{outil} missing")
        try:
            import dbus  # noqa: F401
            import dbusmock  # noqa: F401
        except ImportError as e:
            raise Manque(f"python3-dbusmock missing for {sys.executable} ({e})")
        # The child runs the built programs: every folder above them must let it through.
        if subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                           "test", "-x", self.binaires["agent"]]).returncode != 0:
            raise Manque(f"{self.binaires['agent']} not reachable by another user")

    def _enfant_pret(self):
        try:
            e = pwd.getpwnam(ENFANT)
        except KeyError:
            subprocess.run(["useradd", "-m", ENFANT], check=True)
            e = pwd.getpwnam(ENFANT)
        self.uid, self.gid, self.maison = e.pw_uid, e.pw_gid, e.pw_dir
        self.execution = f"/run/user/{self.uid}"

    def _monter_systeme(self):
        def tmpfs(ou, options):
            os.makedirs(ou, exist_ok=True)
            subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", ou], check=True)
        tmpfs("/run/dbus", "mode=0755")
        tmpfs("/run/user", "mode=0755")
        tmpfs(self.maison, f"mode=0700,uid={self.uid},gid={self.gid}")
        os.mkdir(self.execution, 0o700)
        os.chown(self.execution, self.uid, self.gid)

    def _lancer(self, nom, argv, enfant=False, **kw):
        """Starts a process for the scene's lifetime, its stderr in prive/NOM.log."""
        journal = open(os.path.join(self.prive, nom + ".log"), "wb")
        self.journaux.append(journal)
        kw.setdefault("stderr", journal)
        kw.setdefault("stdout", journal)
        if enfant:
            argv = self.comme_enfant(argv)
            kw.setdefault("env", self.env_enfant())
            kw.setdefault("cwd", self.maison)
        p = subprocess.Popen(argv, **kw)
        self.processus.append(p)
        return p

    def bus_prive(self, nom, type_, adresse, politique, enfant=False, comme=None):
        """Starts a dbus-daemon of the scene: its configuration in NOM.conf, listening on the
        socket `adresse` under the `politique` rules; as the child with `enfant`, or behind
        `comme` (another user's argv prefix). False when it did not start."""
        conf = os.path.join(self.dossier, nom + ".conf")
        with open(conf, "w") as f:
            f.write(f"""<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>{type_}</type>
  <listen>unix:path={adresse}</listen>
  <auth>EXTERNAL</auth>
{politique}
</busconfig>
""")
        argv = (comme or []) + ["dbus-daemon", "--config-file", conf, "--nofork",
                                "--print-address"]
        p = self._lancer(nom, argv, enfant=enfant, stdout=subprocess.PIPE)
        return bool(p.stdout.readline())

    def _bus_systeme(self):
        if not self.bus_prive("bus-systeme", "system", BUS_SYSTEME, """  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <deny own="*"/>
  </policy>
  <policy user="root"><allow own="*"/></policy>"""):
            raise Manque("the private system bus did not start")
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={BUS_SYSTEME}"

    def _logind(self):
        import dbus
        self._lancer("logind", [sys.executable, "-m", "dbusmock", "--system", "--template",
                                "logind"])
        self.bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
        if not attendre(lambda: self.bus.name_has_owner(LOGIND), 10):
            raise Manque("python3-dbusmock's logind did not take its name")
        # The template's GetUser adds a number to a string and fails: the agent, which finds
        # its session through its user, would see no logind at all.
        self.bus.get_object(LOGIND, "/org/freedesktop/login1").AddMethod(
            "org.freedesktop.login1.Manager", "GetUser", "u", "o",
            'ret = "/org/freedesktop/login1/user/%u" % args[0]', dbus_interface=MOCK)

    def _xvfb(self):
        lu, ecrit = os.pipe()
        self._lancer("xvfb", ["Xvfb", "-displayfd", str(ecrit), "-screen", "0", "1024x768x24",
                              "-nolisten", "tcp", "-noreset"], pass_fds=[ecrit])
        os.close(ecrit)
        with os.fdopen(lu) as f:
            numero = f.readline().strip()
        if not numero:
            raise Manque("Xvfb did not start")
        self.affichage = ":" + numero

    def env_enfant(self, **autres):
        """The environment of a process of the child's desktop session."""
        env = {"HOME": self.maison, "USER": ENFANT, "LOGNAME": ENFANT, "SHELL": "/bin/sh",
               "PATH": "/usr/local/bin:/usr/bin:/bin", "LANG": "C.UTF-8",
               "XDG_RUNTIME_DIR": self.execution,
               "DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.execution}/bus",
               "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={BUS_SYSTEME}",
               "TAVI_RELAIS": self.relais}
        if self.graphique:
            env["DISPLAY"] = self.affichage
        env.update(autres)
        return {k: v for k, v in env.items() if v is not None}

    def comme_enfant(self, argv):
        return ["setpriv", f"--reuid={self.uid}", f"--regid={self.gid}", "--init-groups",
                "--"] + list(argv)

    def enfant(self, argv, env=None, **kw):
        """Runs a program as the child, in the child's session; its CompletedProcess."""
        kw.setdefault("capture_output", True)
        kw.setdefault("timeout", 60)
        return subprocess.run(self.comme_enfant(argv), env=env or self.env_enfant(),
                              cwd=self.maison, **kw)

    def _session_enfant(self):
        # A session bus that activates nothing: no Secret Service answers, so the agent keeps
        # its secret in its fallback file, as on a desktop without a keyring.
        if not self.bus_prive("bus-session", "session", f"{self.execution}/bus",
                              """  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>""", enfant=True):
            raise Manque("the child's session bus did not start")
        # The session's leader: the guardian reads the session's environment from it.
        chef = self._lancer("chef", ["sleep", "infinity"], enfant=True)
        attendre(lambda: os.stat(f"/proc/{chef.pid}").st_uid == self.uid, 5)
        if not self.graphique:
            return
        import dbus
        logind = self.bus.get_object(LOGIND, "/org/freedesktop/login1")
        chemin = logind.AddSession("c1", "seat0", dbus.UInt32(self.uid), ENFANT, True,
                                   dbus_interface=MOCK)
        self.bus.get_object(LOGIND, chemin).UpdateProperties(
            "org.freedesktop.login1.Session",
            {"Type": "x11", "Display": self.affichage, "Leader": dbus.UInt32(chef.pid)},
            dbus_interface=MOCK)
        self.bus.get_object(LOGIND, f"/org/freedesktop/login1/user/{self.uid}").Set(
            "org.freedesktop.login1.User", "Display",
            dbus.Struct(("c1", dbus.ObjectPath(chemin)), signature="so"),
            dbus_interface="org.freedesktop.DBus.Properties")

    def _usage_du_jour(self):
        dossier = os.path.join(self.etat_dir, "garde")
        os.makedirs(self.etat_dir, 0o700, exist_ok=True)
        os.makedirs(dossier, 0o700)
        chemin = os.path.join(dossier, f"{self.uid}.json")
        with open(os.open(chemin, os.O_WRONLY | os.O_CREAT, 0o600), "w") as f:
            json.dump({"jour": time.strftime("%Y-%m-%d"), "secondes": self.usage_gardien_s}, f)

    # --- the family server -----------------------------------------------------------------

    def famille(self, *arguments):
        r = subprocess.run([self.binaires["famille"], "--base", self.base] + list(arguments),
                           capture_output=True, text=True, timeout=30)
        if r.returncode != 0:
            raise RuntimeError(f"tavi-famille {' '.join(arguments)}: {r.stderr}")
        return r.stdout

    def _famille(self):
        self.base = os.path.join(self.prive, "famille.db")
        self.famille("enfant", "ajouter", "Léa", "--fuseau", "Europe/Paris")
        p = self._lancer("famille", [self.binaires["famille"], "--base", self.base, "servir",
                                     "--adresse", "127.0.0.1:0"], stdout=subprocess.PIPE)
        ligne = p.stdout.readline()
        try:
            self.port = json.loads(ligne)["port"]
        except (ValueError, KeyError):
            raise Manque(f"tavi-famille did not say where it listens: {ligne!r}")
        self.adresse = f"http://127.0.0.1:{self.port}"

    def rapport(self):
        """The parents' report on Léa, one parsed JSON value per line."""
        return [json.loads(l) for l in self.famille("rapport", "Léa").splitlines() if l.strip()]

    def code(self):
        return json.loads(self.famille("code", "Léa").splitlines()[0])["code"]

    # --- the guardian ----------------------------------------------------------------------

    def demarrer_gardien(self):
        with open(self.conf, "w") as f:
            f.write(f"# Written by the scene\nserveur = {self.adresse}\n")
        self.gardien = self._lancer("gardien", [
            self.binaires["gardien"], "--conf", self.conf, "--etat", self.etat_dir,
            "--relais", self.relais, "--agent", self.binaires["agent"]])
        if not attendre(lambda: os.path.exists(self.relais), 10):
            raise RuntimeError("the guardian did not open its relay:\n" + self.journal("gardien"))

    def journal(self, nom):
        try:
            with open(os.path.join(self.prive, nom + ".log"), errors="replace") as f:
                return f.read()[-4000:]
        except OSError:
            return ""

    def etat(self):
        """`tavi-gardien etat` as root: its JSON lines."""
        r = subprocess.run([self.binaires["gardien"], "--relais", self.relais, "etat"],
                           capture_output=True, text=True, timeout=10)
        lignes = []
        for l in r.stdout.splitlines():
            try:
                lignes.append(json.loads(l))
            except ValueError:
                pass
        return lignes

    def compte_gardien(self):
        """What `tavi-gardien etat` says of the child's account: the members of its entries
        merged (usage, repos, voile, reaction, verrous...), {} when it names none."""
        compte = {}

        def parcourir(v):
            if isinstance(v, dict):
                if v.get("uid") == self.uid or v.get("compte") == ENFANT:
                    compte.update({k: x for k, x in v.items() if k not in compte})
                for x in v.values():
                    parcourir(x)
            elif isinstance(v, list):
                for x in v:
                    parcourir(x)
        parcourir(self.etat())
        return compte

    def usage_gardien(self):
        """The guardian's count of the child's day: (jour, secondes), (None, None) unknown."""
        usage = self.compte_gardien().get("usage")
        if not isinstance(usage, dict):
            return None, None
        return usage.get("jour"), usage.get("secondes")

    def jeton(self):
        """The real token, as root reads it from the guardian's state (None before pairing)."""
        try:
            with open(os.path.join(self.etat_dir, "comptes", f"{self.uid}.json")) as f:
                return json.load(f).get("jeton")
        except (OSError, ValueError):
            return None

    def agents(self):
        """The pids of the agents the guardian started for the child (its children running the
        agent's program), oldest first."""
        trouves = []
        for nom in os.listdir("/proc"):
            if not nom.isdigit():
                continue
            pid = int(nom)
            try:
                exe = os.readlink(f"/proc/{pid}/exe")
                proprietaire = os.stat(f"/proc/{pid}").st_uid
            except OSError:
                continue
            if (exe.removesuffix(" (deleted)") == self.binaires["agent"]
                    and proprietaire == self.uid and self._descend_du_gardien(pid)):
                trouves.append(pid)
        return sorted(trouves)

    def _descend_du_gardien(self, pid):
        for _ in range(4):
            pid = _ppid(pid)
            if not pid:
                return False
            if pid == self.gardien.pid:
                return True
        return False

    def relier(self):
        """Pairs the child's account as the child does: `tavi rejoindre CODE` through the
        relay. Returns the real token the guardian keeps."""
        r = self.enfant([self.binaires["tavi"], "rejoindre", self.code()], text=True)
        if r.returncode != 0:
            raise RuntimeError(f"tavi rejoindre: {r.returncode} {r.stdout} {r.stderr}")
        jeton = attendre(self.jeton, 5)
        if not jeton:
            raise RuntimeError("no account in the guardian's state:\n" + self.journal("gardien"))
        return jeton

    def requete_relais(self, brut, delai=5):
        """Sends raw bytes on the relay as the calling process and returns all it answers."""
        s = socket.socket(socket.AF_UNIX)
        s.settimeout(delai)
        s.connect(self.relais)
        s.sendall(brut)
        recu = b""
        try:
            while morceau := s.recv(65536):
                recu += morceau
        except socket.timeout:
            pass
        s.close()
        return recu

    # --- taking it down --------------------------------------------------------------------

    def demonter(self):
        # The agents it started first: the guardian's end need not take them along.
        agents = self.agents() if self.gardien else []
        if self.gardien and self.gardien.poll() is None:
            self.gardien.terminate()
            try:
                self.gardien.wait(5)
            except subprocess.TimeoutExpired:
                self.gardien.kill()
        for pid in agents:
            try:
                os.kill(pid, 9)
            except OSError:
                pass
        for p in reversed(self.processus):
            if p.poll() is None:
                p.terminate()
                try:
                    p.wait(5)
                except subprocess.TimeoutExpired:
                    p.kill()
                    p.wait()
        for j in self.journaux:
            j.close()
        if self.dossier and os.environ.get("TAVI_SCENE_GARDER") != "1":
            shutil.rmtree(self.dossier, ignore_errors=True)
