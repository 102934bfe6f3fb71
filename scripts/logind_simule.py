"""The child's sessions as python3-dbusmock's logind shows them, for the scene of
scene_gardien.py: sessions added and taken out, the locks asked of logind, wakes and suspends."""
ENFANT = "tavienfant"
MOCK = "org.freedesktop.DBus.Mock"
LOGIND = "org.freedesktop.login1"


class LogindSimule:
    """Mixed into the scene, which holds `bus` (the private system bus) and the child's `uid`."""

    def session_logind(self, identifiant):
        return self.bus.get_object(LOGIND, f"/org/freedesktop/login1/session/{identifiant}")

    def ajouter_session(self, identifiant, siege, meneur, **proprietes):
        """Adds a session of the child to logind, active on its seat; its object path."""
        import dbus
        logind = self.bus.get_object(LOGIND, "/org/freedesktop/login1")
        chemin = logind.AddSession(identifiant, siege, dbus.UInt32(self.uid), ENFANT, True,
                                   dbus_interface=MOCK)
        proprietes.setdefault("Leader", dbus.UInt32(meneur))
        self.session_logind(identifiant).UpdateProperties(
            "org.freedesktop.login1.Session", proprietes, dbus_interface=MOCK)
        return chemin

    def retirer_session(self, identifiant, siege):
        """Takes a session out of logind as its end does: off its seat and its user."""
        import dbus
        chemin = f"/org/freedesktop/login1/session/{identifiant}"
        for objet, interface in ((f"/org/freedesktop/login1/seat/{siege}", "Seat"),
                                 (f"/org/freedesktop/login1/user/{self.uid}", "User")):
            o = self.bus.get_object(LOGIND, objet)
            iface = "org.freedesktop.login1." + interface
            restantes = [s for s in o.Get(iface, "Sessions", dbus_interface=dbus.PROPERTIES_IFACE)
                         if str(s[1]) != chemin]
            o.Set(iface, "Sessions", dbus.Array(restantes, signature="(so)"),
                  dbus_interface=dbus.PROPERTIES_IFACE)
        self.bus.get_object(LOGIND, "/org/freedesktop/login1").RemoveObject(
            chemin, dbus_interface=MOCK)

    def verrous(self, identifiant, depuis):
        """The instants (seconds since the epoch) the session was locked through logind at or
        after `depuis`: the Manager's LockSession or the session's own Lock."""
        appels = [(t, m, a) for t, m, a in self.bus.get_object(
            LOGIND, "/org/freedesktop/login1").GetCalls(dbus_interface=MOCK)
            if m == "LockSession" and a and str(a[0]) == identifiant]
        try:
            appels += [(t, m, a) for t, m, a in self.session_logind(identifiant).GetCalls(
                dbus_interface=MOCK) if m == "Lock"]
        except Exception:  # the session may be gone
            pass
        return [int(t) for t, _, _ in appels if int(t) >= int(depuis)]

    def reveiller(self):
        """logind says the computer woke up: the agent beats at once instead of within 30 s."""
        self.bus.get_object(LOGIND, "/org/freedesktop/login1").EmitSignal(
            "org.freedesktop.login1.Manager", "PrepareForSleep", "b", [False],
            dbus_interface=MOCK)

    def preparer_veille(self, avant):
        """A suspend as logind announces it: the property first, then the signal."""
        import dbus
        logind = self.bus.get_object(LOGIND, "/org/freedesktop/login1")
        logind.UpdateProperties("org.freedesktop.login1.Manager",
                                {"PreparingForSleep": dbus.Boolean(avant)}, dbus_interface=MOCK)
        logind.EmitSignal("org.freedesktop.login1.Manager", "PrepareForSleep", "b", [avant],
                          dbus_interface=MOCK)
