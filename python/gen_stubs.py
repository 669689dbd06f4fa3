#!/usr/bin/env python3
"""Writes the type stubs of the halqvantor package (halqvantor/__init__.pyi) from the module's own member table,
so that an editor completes and checks all members. Run it after the table changes:

    PYTHONPATH=build/python python3 python/gen_stubs.py > python/halqvantor/__init__.pyi
"""

import sys

# This file's folder holds the package's sources without the extension: import the built package instead.
sys.path.pop(0)
import halqvantor  # noqa: E402

HEAD = '''"""Type stubs of halqvantor (written by python/gen_stubs.py from the member table: do not edit)."""

from datetime import date, datetime
from typing import Any, Callable, NamedTuple

Value = str | int | float | bool | date | datetime | None

class _Missing: ...

MISSING: _Missing
MEMBERS: tuple[str, ...]

class Ref:
    value: Any
    def __init__(self, value: Any = None) -> None: ...

class VantorError(Exception):
    number: int
    description: str
    member: str | None
    argument: int

class ThreadError(RuntimeError): ...

class GatewayError(Exception):
    member: str
    status: str

class WsgiContext:
    def __init__(self, environ: dict[str, Any]) -> None: ...

class Options:
    max_reply_bytes: int
    strong_passwords: bool
    progress: Callable[[str, int, int, str], bool | None] | None

def describe(name: str) -> dict[str, Any] | None: ...
def columns(row: str) -> list[str]: ...

class Hit(NamedTuple):
    channel: str
    archive: str
    doc_id: str
    ver: str
    columns: list[str]

class Hitlist(NamedTuple):
    titles: list[str]
    total: int
    multi_tiff: bool
    hits: list[Hit]

class Note(NamedTuple):
    number: str
    author: str
    date: str
    time: str
    text: str

class MaskField(NamedTuple):
    id: int
    tab_index: int
    width: int
    align: str
    name: str
    mandatory: bool
    init_text: str
    list_only: bool
    list: list[str]

class Mask(NamedTuple):
    name: str
    fields: list[MaskField]

class clsVantor:
    def __init__(self) -> None: ...
    @property
    def options(self) -> Options: ...
    def channels(self) -> list[tuple[str, str]]: ...
    def archives(self, channel: str) -> list[str]: ...
    def query(self, channel: str, archive: str, query: str, max_lines: int = ..., query_max: int = ...,
              query_format: str | _Missing = ..., folder_rights: str | _Missing = ...) -> Hitlist: ...
    def sort_hits(self, column: int) -> Hitlist: ...
    def notes(self, channel: str, archive: str, doc_id: str, ver: str) -> list[Note]: ...
    def masks(self, channel: str, archive: str) -> list[Mask]: ...
'''

RESULTS = {"none": "None", "variant": "Any", "long": "int", "bool": "bool"}
PROPERTIES = {"str": "str", "long": "int"}


def main() -> None:
    out = [HEAD]
    for name in halqvantor.MEMBERS:
        d = halqvantor.describe(name)
        if d["property"]:
            out.append(f"    {name}: {PROPERTIES[d['kind']]}\n")
            continue
        params = []
        for pname, by_ref, optional, _kind in d["parameters"]:
            if name == "OnStartPage":
                params.append(f"{pname}: WsgiContext | None = ...")
                continue
            kind = "Ref | _Missing" if by_ref else "Value | Ref | _Missing"
            params.append(f"{pname}: {kind}" + (" = ..." if optional else ""))
        args = ", ".join(["self"] + params)
        out.append(f"    def {name}({args}) -> {RESULTS[d['result']]}: ...\n")
    print("".join(out), end="")


if __name__ == "__main__":
    main()
