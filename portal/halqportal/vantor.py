"""The component object of the current page, the signed-in user's archive account and rights.

One `clsVantor` per request, made on first use and ended with the request; it is never kept or shared.
"""

import re
from dataclasses import dataclass, field

from flask import abort, current_app, g, redirect, session, url_for

import halqvantor

# Gateway error codes and what a browser is told.
_NOT_ALLOWED = {21, 22}
_NOT_FOUND = {30, 31, 32, 33}


class GatewayFailure(Exception):
    """A gateway or user-directory operation that failed; the page shows `message`."""

    def __init__(self, what, status):
        super().__init__(f"{what}: {status}")
        self.status = status or "no answer"
        self.message = f"{what} failed: {self.status}"
        match = re.match(r"Error (\d+)", self.status)
        code = int(match.group(1)) if match else None
        if code in _NOT_ALLOWED:
            self.http_status = 403
        elif code in _NOT_FOUND:
            self.http_status = 404
        else:
            self.http_status = 502


def new_component(with_database):
    """A component object set up from the configuration, with the signed-in user's archive account unset."""
    config = current_app.config
    vantor = halqvantor.clsVantor()
    vantor.strREMOTEHOST = config["GATEWAY_HOST"]
    vantor.lngREMOTEPORT = int(config["GATEWAY_PORT"])
    vantor.lngREQUESTTIMEOUT = int(config["GATEWAY_TIMEOUT"])
    vantor.strSessionID = session.get("sid", "PORTAL")
    vantor.strBlobPathLocal = config["BLOB_LOCAL"]
    vantor.strBlobPathRemote = config["BLOB_REMOTE"]
    vantor.strDBConnect = config["DB_CONNECT"]
    vantor.strDebugLogPath = config["DEBUG_LOG"]
    vantor.Init(with_database)
    return vantor


def page():
    """The page's component object, with the user database open and the user's archive account set."""
    if "vantor" not in g:
        g.vantor = new_component(True)
        uid = session.get("uid")
        if uid:
            user, password = halqvantor.Ref(), halqvantor.Ref()
            found = page_call(g.vantor.GetUserEASYUser, uid, user, password)
            if found != 1:  # the user left the directory since he logged on
                session.clear()
                abort(redirect(url_for("auth.login")))
            g.vantor.strEASYUser = user.value or ""
            g.vantor.strEASYPwd = password.value or ""
    return g.vantor


def page_call(member, *args):
    """Calls a user-directory member; its -1 (database failure) becomes a GatewayFailure."""
    result = member(*args)
    if result == -1:
        raise GatewayFailure("The user directory", "it cannot be read; see the component's debug log")
    return result


def checked(what, result, status):
    """`result` of an operation that reports -1 and a status text on failure."""
    if result == -1:
        raise GatewayFailure(what, status.value)
    return result


def end_page(_error=None):
    vantor = g.pop("vantor", None)
    if vantor is not None and g.pop("page_started", False):
        vantor.OnEndPage()


def enclosed(text, opening="^", closing="^"):
    """The names of a user-directory list such as ^A^,^B^ (or [A],[B])."""
    if not text:
        return []
    inner = text[len(opening) : len(text) - len(closing)]
    return inner.split(closing + "," + opening)


def columns(row):
    """The columns of a row in the column layout: ^a^,^b^ gives ["a", "b"]."""
    if len(row) >= 2 and row[0] == "^" and row[-1] == "^":
        row = row[1:-1]
    return row.split("^,^")


@dataclass
class Rights:
    """What the user directory grants the signed-in user (and his groups)."""

    channels: set = field(default_factory=set)
    archives: set = field(default_factory=set)
    rights: set = field(default_factory=set)  # NOTIZEN, SUCHE, UPLOAD, ...
    edit: dict = field(default_factory=dict)  # archive -> {"N", "E", "D"}

    def may_read(self, channel, archive):
        return channel in self.channels and archive in self.archives

    def may_edit(self, archive, flag):
        return flag in self.edit.get(archive, set())


def rights():
    """The signed-in user's rights, read once per page from the user directory."""
    if "rights" not in g:
        vantor, uid = page(), session["uid"]
        found = Rights()
        text = halqvantor.Ref()
        page_call(vantor.GetUserChannels, uid, text)
        found.channels = set(enclosed(text.value))
        page_call(vantor.GetUserArchives, uid, text)
        found.archives = set(enclosed(text.value))
        page_call(vantor.GetUserRights, uid, text)
        found.rights = set(enclosed(text.value))
        page_call(vantor.GetUserEditRights, uid, text)
        for line in (text.value or "").split("\r\n"):
            if line:
                archive, *flags = line.split(",")
                found.edit[archive] = set(flags)
        g.rights = found
    return g.rights


def require_archive(channel, archive):
    """Refuses (403) an archive the user directory does not grant, whatever the URL says."""
    if not rights().may_read(channel, archive):
        abort(403)


def require_right(right):
    if right not in rights().rights:
        abort(403)


_FORBIDDEN = re.compile(r"[\^\x00-\x08\x0b-\x1f]")


def gateway_text(value, what, multiline=False):
    """`value` as the gateway can take it; raises ValueError with a sentence for the clerk."""
    if _FORBIDDEN.search(value) or (not multiline and ("\r" in value or "\n" in value)):
        raise ValueError(f"{what} may not hold the character ^, line breaks or control characters.")
    try:
        value.encode("cp1252")
    except UnicodeEncodeError:
        raise ValueError(f"{what} holds characters the archive cannot store (only Western European letters).")
    return value
