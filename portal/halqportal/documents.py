"""The document page: info, segments with downloads, the text with the query's hits marked, and notes."""

import os
import secrets
import shutil

from flask import (Blueprint, abort, current_app, flash, redirect, render_template, request, send_file,
                   session, url_for)
from markupsafe import Markup, escape

import halqvantor

from .security import login_required
from .vantor import checked, gateway_text, page, require_archive, require_right, rights

bp = Blueprint("documents", __name__, url_prefix="/d/<channel>/<archive>/<doc_id>/<ver>")

# Markers the gateway puts around the query's words; plain text that HTML escaping leaves alone.
_MARK_ON, _MARK_OFF = "[#HIT#", "#/HIT#]"
_MAX_NOTE = 8000

CONTENT_TYPES = {
    "PDF": "application/pdf",
    "TIF": "image/tiff",
    "TIFF": "image/tiff",
    "TXT": "text/plain; charset=windows-1252",
    "DOC": "application/msword",
    "JPG": "image/jpeg",
    "PNG": "image/png",
}
SEGMENT_KINDS = {"1": "text", "2": "image", "3": "file", "4": "references"}


@bp.url_value_preprocessor
def _check_archive(_endpoint, values):
    if session.get("uid"):  # without a user the view's login_required sends the browser to the log-on
        require_archive(values["channel"], values["archive"])


def _marked(piece):
    """A text piece as HTML: escaped, with the gateway's markers turned into <mark>."""
    html = str(escape(piece)).replace(_MARK_ON, "<mark>").replace(_MARK_OFF, "</mark>")
    return Markup(html)


@bp.route("")
@login_required
def document(channel, archive, doc_id, ver):
    vantor = page()
    query = request.args.get("q", "")
    try:
        gateway_text(query, "The query")
    except ValueError as e:
        abort(400, str(e))
    status = halqvantor.Ref()
    info = [halqvantor.Ref() for _ in range(8)]
    found = checked("Reading the document", vantor.EASYGetDocumentInfo(channel, archive, doc_id, ver, *info, status),
                    status)
    if found < 1:
        abort(404)
    keys = ("length", "created", "changed", "title", "segments", "texts", "images", "blobs")
    doc = dict(zip(keys, (ref.value for ref in info)))

    notes_count = halqvantor.Ref()
    count = checked("Reading the segments", vantor.EASYGetSegmentDescriptionInit(
        channel, archive, doc_id, ver, halqvantor.MISSING, notes_count, status), status)
    segments = []
    for _ in range(max(count, 0)):
        outs = [halqvantor.Ref() for _ in range(11)]
        code = vantor.EASYGetSegmentDescriptionNext(*outs)
        seg_id, text_length, hit_count, image_length, ext, kind, title = (o.value for o in outs[:7])
        segments.append({"id": seg_id, "code": code, "text_length": text_length, "hits": hit_count,
                         "image_length": image_length, "ext": (ext or "").upper(),
                         "kind": SEGMENT_KINDS.get(kind, kind),
                         "title": title or code})
    for segment in segments:
        segment["references"] = _references(vantor, channel, archive, doc_id, ver, segment) \
            if segment["kind"] == "references" else []

    count = checked("Reading the text", vantor.EASYGetSegmentTextInit(
        channel, archive, doc_id, ver, query or halqvantor.MISSING, _MARK_ON, _MARK_OFF, "\n", halqvantor.MISSING,
        status), status)
    texts = [_marked(vantor.EASYGetSegmentTextNext()) for _ in range(max(count, 0))]
    notes = vantor.notes(channel, archive, doc_id, ver)

    granted = rights()
    return render_template(
        "document.html", channel=channel, archive=archive, doc_id=doc_id, ver=ver, query=query, doc=doc,
        segments=segments, texts=texts, notes=notes, max_note=_MAX_NOTE,
        may_write_notes="NOTIZEN" in granted.rights, may_delete_notes=granted.may_edit(archive, "E"),
        multi_page=str(doc.get("images") or "0") not in ("", "0"))


def _references(vantor, channel, archive, doc_id, ver, segment):
    status = halqvantor.Ref()
    count = vantor.EASYGetSegmentERFInit(channel, archive, doc_id, ver, segment["id"], status)
    references = []
    for _ in range(max(count, 0)):
        parts = [halqvantor.Ref() for _ in range(4)]
        line = vantor.EASYGetSegmentERFNext(*parts)
        values = [p.value for p in parts]
        references.append({"line": line, "target": values if all(values[:3]) else None,
                           "readable": all(values[:3]) and rights().may_read(values[0], values[1])})
    return references


def _fetch(what, call):
    """Has the gateway write a file into a folder of this request only and sends it as a download. The
    folder goes at once: the open file stays readable until the response is sent."""
    config = current_app.config
    folder_name = "get-" + secrets.token_hex(8)
    local = os.path.join(config["BLOB_LOCAL"], folder_name)
    os.mkdir(local, 0o700)
    try:
        vantor = page()
        vantor.strBlobPathLocal = local
        vantor.strBlobPathRemote = config["BLOB_REMOTE"] + "\\" + folder_name
        name, length, status = halqvantor.Ref(), halqvantor.Ref(), halqvantor.Ref()
        checked(what, call(vantor, name, length, status), status)
        file_name = name.value or ""
        path = os.path.join(local, file_name)
        if not file_name or os.path.basename(file_name) != file_name or not os.path.isfile(path):
            abort(404)
        content = open(path, "rb")
    finally:
        shutil.rmtree(local, ignore_errors=True)
    ext = file_name.rsplit(".", 1)[-1].upper() if "." in file_name else ""
    return send_file(content, mimetype=CONTENT_TYPES.get(ext, "application/octet-stream"), as_attachment=True,
                     download_name=file_name, max_age=0)


@bp.route("/segment/<segment>")
@login_required
def segment_file(channel, archive, doc_id, ver, segment):
    return _fetch("Fetching the segment", lambda v, name, length, status: v.EASYGetSegmentData(
        channel, archive, doc_id, ver, segment, name, length, status))


@bp.route("/pages.tif")
@login_required
def pages_tiff(channel, archive, doc_id, ver):
    """All image pages of the document as one multi-page TIFF."""
    return _fetch("Fetching the pages", lambda v, name, length, status: v.EASYGetSegmentMultiTIF(
        channel, archive, doc_id, ver, "", name, length, status))


@bp.route("/notes", methods=["POST"])
@login_required
def add_note(channel, archive, doc_id, ver):
    require_right("NOTIZEN")
    text = request.form.get("note", "").replace("\r\n", "\n").strip()
    back = url_for("documents.document", channel=channel, archive=archive, doc_id=doc_id, ver=ver,
                   q=request.form.get("q") or None, _anchor="notes")
    try:
        if not text:
            raise ValueError("The note is empty.")
        if len(text) > _MAX_NOTE:
            raise ValueError(f"A note holds at most {_MAX_NOTE} characters.")
        gateway_text(text, "A note", multiline=True)
    except ValueError as e:
        flash(str(e), "error")
        return redirect(back)
    status = halqvantor.Ref()
    checked("Writing the note", page().EASYWriteNote(channel, archive, doc_id, ver, text, "\n", status), status)
    flash("Note added.", "ok")
    return redirect(back)


@bp.route("/notes/delete", methods=["POST"])
@login_required
def delete_notes(channel, archive, doc_id, ver):
    if not rights().may_edit(archive, "E"):
        abort(403)
    status = halqvantor.Ref()
    checked("Deleting the notes", page().EASYDeleteNotes(channel, archive, doc_id, ver, status), status)
    flash("All notes of the document deleted.", "ok")
    return redirect(url_for("documents.document", channel=channel, archive=archive, doc_id=doc_id, ver=ver,
                            q=request.form.get("q") or None, _anchor="notes"))
