"""clsVantor for Python pages.

A page uses the object as a script page uses the component: one object per page request, properties as
attributes, every member by its name (without regard to case), by-reference outputs through Ref::

    import halqvantor
    v = halqvantor.clsVantor()
    v.strREMOTEHOST = "gateway.example"
    v.lngREMOTEPORT = 4711
    v.Init()
    status = halqvantor.Ref()
    if v.EASYGetChannelsInit(status) < 0:
        print(status.value)

Arguments: str, int, float, bool, a date, None (Null); MISSING leaves an optional argument out, and so does
ending the list early; parameters may also be named (strStatus=status). Results: str, int, float, bool,
datetime, None (Empty or Null). Run-time errors and refused calls raise VantorError with the VB number.

The helpers channels(), archives(), query(), sort_hits(), notes() and masks() walk the Init/Next members
for the page and raise GatewayError with the status text when the Init fails.
"""

from __future__ import annotations

from typing import NamedTuple

from ._core import MEMBERS, MISSING, Options, Ref, ThreadError, VantorError, WsgiContext, describe
from ._core import clsVantor as _Object

__all__ = [
    "clsVantor", "Ref", "MISSING", "VantorError", "ThreadError", "GatewayError", "WsgiContext", "Options",
    "MEMBERS", "describe", "Hit", "Hitlist", "Note", "Mask", "MaskField", "columns",
]

_CANONICAL = {name.lower(): name for name in MEMBERS}
_EXTRA = {"options"}


class GatewayError(Exception):
    """An Init of a helper failed; .status is the component's status text."""

    def __init__(self, member: str, status: str):
        super().__init__(f"{member}: {status}")
        self.member = member
        self.status = status


class _NoSuchMember(VantorError, AttributeError):
    pass


def _no_such_member(name: str) -> _NoSuchMember:
    return _NoSuchMember(438, f"clsVantor has no member named '{name}'", name, 0)


def columns(row: str) -> list[str]:
    """The columns of a row in the column layout: "^a^,^b^" gives ["a", "b"]; "" gives []."""
    if not row:
        return []
    inner = row[1:-1] if len(row) >= 2 and row[0] == "^" and row[-1] == "^" else row
    return inner.split("^,^")


class Hit(NamedTuple):
    channel: str
    archive: str
    doc_id: str
    ver: str
    columns: list[str]


class Hitlist(NamedTuple):
    titles: list[str]  # the display columns' titles
    total: int  # the gateway's count of all hits (the list holds at most max_lines)
    multi_tiff: bool  # the hits' images can be fetched as one multi-page TIFF
    hits: list[Hit]


class Note(NamedTuple):
    number: str
    author: str
    date: str
    time: str
    text: str  # lines joined with CR LF


class MaskField(NamedTuple):
    id: int
    tab_index: int
    width: int
    align: str
    name: str
    mandatory: bool
    init_text: str
    list_only: bool
    list: list[str]  # the choices of a list field


class Mask(NamedTuple):
    name: str
    fields: list[MaskField]


def _int(value) -> int:
    try:
        return int(value)
    except (TypeError, ValueError):
        return 0


class clsVantor(_Object):
    """The component object: one per page, used on the thread that created it."""

    __slots__ = ()

    def __getattr__(self, name: str):
        canonical = _CANONICAL.get(name.lower())
        if canonical is None or canonical == name:
            raise _no_such_member(name)
        return getattr(self, canonical)

    def __setattr__(self, name: str, value) -> None:
        canonical = _CANONICAL.get(name.lower())
        if canonical is None:
            raise _no_such_member(name)
        object.__setattr__(self, canonical, value)

    def __dir__(self):
        return sorted(set(super().__dir__()) | set(MEMBERS))

    # ---- Walks over the Init/Next members

    def _init(self, member: str, *args) -> int:
        status = Ref()
        count = getattr(self, member)(*args, strStatus=status)
        if count is None or count < 0:
            raise GatewayError(member, status.value or "")
        return count

    def channels(self) -> list[tuple[str, str]]:
        """(name, description) of every channel, sorted as the gateway's list is."""
        count = self._init("EASYGetChannelsInit")
        out = []
        for _ in range(count):
            description = Ref()
            out.append((self.EASYGetChannelsNext(description), description.value or ""))
        return out

    def archives(self, channel: str) -> list[str]:
        """The archive names of a channel."""
        count = self._init("EASYGetArchivesInit", channel)
        return [self.EASYGetArchivesNext() for _ in range(count)]

    def _walk_hits(self, next_member, count: int) -> tuple[list[str], list[Hit]]:
        titles: list[str] = []
        hits: list[Hit] = []
        for i in range(count):
            channel, archive, doc_id, ver = Ref(), Ref(), Ref(), Ref()
            display = next_member(channel, archive, doc_id, ver)
            if i == 0:
                titles = columns(display)
            else:
                hits.append(Hit(channel.value, archive.value, doc_id.value, ver.value, columns(display)))
        return titles, hits

    def query(self, channel: str, archive: str, query: str, max_lines: int = 100, query_max: int = 1000,
              query_format=MISSING, folder_rights=MISSING) -> Hitlist:
        """Runs a query and reads its hit list: the title line's columns and the hits in the gateway's order."""
        total, multi_tiff = Ref(), Ref()
        count = self._init("EASYQueryArchiveInit", channel, archive, query, max_lines, query_max, query_format,
                           folder_rights, MISSING, MISSING, total, multi_tiff)
        titles, hits = self._walk_hits(self.EASYQueryArchiveNext, count)
        return Hitlist(titles, _int(total.value), bool(multi_tiff.value), hits)

    def sort_hits(self, column: int) -> Hitlist:
        """Sorts the hit list of the last query by `column` and reads it: 0 is the document id, 1 the version,
        2 and on the display columns. Each sort reverses the one before; the first goes against the order
        the gateway sent."""
        count = self.EASYSortHitlistInit(column)
        titles, hits = self._walk_hits(self.EASYSortHitlistNext, count + 1)
        return Hitlist(titles, len(hits), False, hits)

    def notes(self, channel: str, archive: str, doc_id: str, ver: str) -> list[Note]:
        """The notes of a document: number, author, date, time and text."""
        count = self._init("EASYGetNotesInit", channel, archive, doc_id, ver)
        out = []
        for _ in range(count):
            note = self.EASYGetNotesNext()
            # The header row is four columns (eight "^"), then a comma, then the text.
            end = -1
            for _caret in range(8):
                end = note.find("^", end + 1)
                if end < 0:
                    break
            if end < 0:
                out.append(Note("", "", "", "", note))
                continue
            header = (columns(note[: end + 1]) + ["", "", "", ""])[:4]
            out.append(Note(*header, note[end + 2:]))
        return out

    def masks(self, channel: str, archive: str) -> list[Mask]:
        """The entry masks of an archive with their fields."""
        count = self._init("EASYGetMasksInit", channel, archive)
        out = []
        for _ in range(count):
            name = Ref()
            n = self.EASYGetMasksNext(name)
            fields = []
            for _f in range(max(0, n)):
                tab, width, align, fname, mandatory, init, list_only, choices = (Ref() for _r in range(8))
                field_id = self.EASYGetMasksNextField(tab, width, align, fname, mandatory, init, list_only, choices)
                fields.append(MaskField(_int(field_id), _int(tab.value), _int(width.value), align.value or "",
                                        fname.value or "", bool(mandatory.value), init.value or "",
                                        bool(list_only.value), columns(choices.value or "")))
            out.append(Mask(name.value or "", fields))
        return out
