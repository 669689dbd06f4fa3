"""Channels and archives, the query form and the hit list.

The component keeps nothing between pages, so the hit list page runs the query again on every view, takes
out the hits the clerk removed (kept in the session) and sorts as its URL says: `sort` is the column (0 the
document id, 1 the version, 2 and up the display columns) and `rev=1` sorts a second time, which reverses
the first.
"""

import hashlib
import re

from flask import Blueprint, abort, current_app, redirect, render_template, request, session, url_for

import halqvantor

from .security import login_required
from .vantor import checked, gateway_text, page, require_archive, require_right, rights

bp = Blueprint("archives", __name__)

# Query-string keys a hit list URL carries: f<field id> per condition, the free text, the query format and
# the sort.
_CONDITION = re.compile(r"f(\d{1,9})")
_LIST_KEYS = ("text", "fmt", "sort", "rev")
# Bounds of what the session remembers of removed hits.
_MAX_REMOVED_LISTS = 20
_MAX_REMOVED_HITS = 200

FIELD_TYPES = {"1": "text", "2": "number", "3": "date"}


@bp.route("/")
@login_required
def home():
    vantor, granted = page(), rights()
    channels = []
    for name, description in vantor.channels():
        if name in granted.channels:
            archives = [a for a in vantor.archives(name) if a in granted.archives]
            channels.append({"name": name, "description": description, "archives": archives})
    return render_template("home.html", channels=channels)


def describe(vantor, channel, archive):
    """The archive's fields in weight order, each with its select list when it has one."""
    edit_rights, status = halqvantor.Ref(), halqvantor.Ref()
    count = checked("Reading the archive's fields",
                    vantor.EASYGetArchiveDescriptionInit(channel, archive, edit_rights, status), status)
    fields = []
    for _ in range(max(count, 0)):
        outs = [halqvantor.Ref() for _ in range(6)]
        name = vantor.EASYGetArchiveDescriptionNext(*outs)
        field_id, field_type, size, _state, _weight, select = (o.value for o in outs)
        fields.append({"id": field_id, "name": name, "type": FIELD_TYPES.get(field_type, "text"),
                       "size": int(size) if str(size).isdigit() else 0, "select": select == "1", "list": []})
    for field in fields:
        if field["select"]:
            count = checked("Reading a select list",
                            vantor.EASYGetSegmentSelectListInit(channel, archive, field["id"], status), status)
            field["list"] = [vantor.EASYGetSegmentSelectListNext() for _ in range(max(count, 0))]
    return fields


def query_formats(vantor, channel, archive):
    status = halqvantor.Ref()
    count = checked("Reading the query formats", vantor.EASYGetQueryFormatListInit(channel, archive, status), status)
    return [vantor.EASYGetQueryFormatListNext() for _ in range(max(count, 0))]


def may_create(vantor, channel, archive):
    """Both the user directory (N) and the gateway account (create) allow new documents."""
    if not rights().may_edit(archive, "N"):
        return False
    create, status = halqvantor.Ref(), halqvantor.Ref()
    result = vantor.EASYGetArchiveProperties(channel, archive, create, halqvantor.MISSING, halqvantor.MISSING,
                                          halqvantor.MISSING, status)
    return result != -1 and create.value is True


@bp.route("/a/<channel>/<archive>/")
@login_required
def archive(channel, archive):
    require_archive(channel, archive)
    vantor = page()
    fields = describe(vantor, channel, archive)
    formats = query_formats(vantor, channel, archive)
    return render_template("archive.html", channel=channel, archive=archive, fields=fields, formats=formats,
                           may_search="SUCHE" in rights().rights, may_create=may_create(vantor, channel, archive))


def build_query(args):
    """The gateway query of the form's values: .ID=(value) per filled field, then the free text."""
    parts = []
    for key in sorted(args, key=lambda k: (len(k), k)):
        match = _CONDITION.fullmatch(key)
        value = args.get(key, "").strip()
        if match and value:
            gateway_text(value, "A search value")
            if "(" in value or ")" in value:
                raise ValueError("A search value may not hold parentheses.")
            parts.append(f".{match.group(1)}=({value})")
    text = " ".join(re.sub(r"[&()=]", " ", args.get("text", "")).split())
    if text:
        parts.append(gateway_text(text, "The free text"))
    return "&".join(parts)


def list_args(args):
    """The hit list's own query-string values, and nothing else."""
    return {k: v for k, v in args.items() if (_CONDITION.fullmatch(k) or k in _LIST_KEYS) and v != ""}


def _removed_key(channel, archive, fmt, query):
    return hashlib.sha256("\x1f".join((channel, archive, fmt, query)).encode()).hexdigest()[:20]


@bp.route("/a/<channel>/<archive>/hits")
@login_required
def hits(channel, archive):
    require_archive(channel, archive)
    require_right("SUCHE")
    try:
        query = build_query(request.args)
    except ValueError as e:
        abort(400, str(e))
    fmt = request.args.get("fmt", "")
    vantor = page()
    limit = current_app.config["MAX_HITS"]
    found = vantor.query(channel, archive, query, max_lines=limit, query_max=0,
                         query_format=fmt or halqvantor.MISSING)

    removed = set(session.get("removed", {}).get(_removed_key(channel, archive, fmt, query), []))
    lines = [n for n, hit in enumerate(found.hits, 1) if f"{hit.doc_id}/{hit.ver}" in removed]
    for line in reversed(lines):  # from the end, so that the earlier line numbers stay as they were
        vantor.EASYDeleteFromHitlist(line)
    shown = [hit for hit in found.hits if f"{hit.doc_id}/{hit.ver}" not in removed]

    sort = request.args.get("sort", type=int)
    again = request.args.get("rev") == "1"
    if sort is not None and 0 <= sort < len(found.titles) + 2:
        sorted_list = vantor.sort_hits(sort)
        if again:
            sorted_list = vantor.sort_hits(sort)
        shown = sorted_list.hits
    else:
        sort = None

    base = list_args(request.args)
    base.pop("sort", None)
    base.pop("rev", None)

    def sort_link(column):
        second = sort == column and not again
        return url_for("archives.hits", channel=channel, archive=archive, sort=column, rev="1" if second else None,
                       **base)

    return render_template("hits.html", channel=channel, archive=archive, query=query, found=found, hits=shown,
                           removed=len(lines), sort=sort, again=again, sort_link=sort_link,
                           args=list_args(request.args), limit=limit)


@bp.route("/a/<channel>/<archive>/hits/remove", methods=["POST"])
@login_required
def remove_hit(channel, archive):
    """Takes one hit out of the hit list (the archive keeps the document), or brings all back."""
    require_archive(channel, archive)
    try:
        query = build_query(request.args)
    except ValueError as e:
        abort(400, str(e))
    key = _removed_key(channel, archive, request.args.get("fmt", ""), query)
    removed = dict(session.get("removed", {}))
    refs = list(removed.pop(key, []))
    ref = request.form.get("ref", "")
    if request.form.get("restore"):
        refs = []
    elif re.fullmatch(r"[^/\s]{1,40}/[0-9]{0,9}", ref) and ref not in refs:
        refs = (refs + [ref])[-_MAX_REMOVED_HITS:]
    if refs:
        removed[key] = refs
    while len(removed) > _MAX_REMOVED_LISTS:
        removed.pop(next(iter(removed)))
    session["removed"] = removed
    return redirect(url_for("archives.hits", channel=channel, archive=archive, **list_args(request.args)))
