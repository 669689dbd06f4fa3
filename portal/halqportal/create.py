"""Uploading a file and creating a document from an entry mask.

The browser posts the file alone (the component's UploadFile takes the body's one part), so that form's
CSRF token travels in its URL. A stored upload is named with a fresh prefix and remembered in the session
until a new document takes it or the clerk logs off.
"""

import datetime
import os
import secrets

from flask import (Blueprint, abort, current_app, flash, g, redirect, render_template, request, session,
                   url_for)

import halqvantor

from .archives import describe
from .security import login_required
from .vantor import GatewayFailure, checked, gateway_text, page, require_archive, require_right, rights

bp = Blueprint("create", __name__)

_MAX_UPLOADS = 10
_TODAY_WORDS = {"heute", "today"}


def _uploads():
    return list(session.get("uploads", []))


def _blob(name):
    return os.path.join(current_app.config["BLOB_LOCAL"], name)


def forget_file(name):
    try:
        os.remove(_blob(name))
    except OSError:
        pass


def forget_uploads():
    """Removes the files the session uploaded and did not use (at log-off)."""
    for upload in session.get("uploads", []):
        forget_file(upload["file"])


@bp.route("/upload", methods=["GET", "POST"])
@login_required
def upload():
    require_right("UPLOAD")
    if request.method == "POST":
        length = request.content_length or 0
        if length > current_app.config["MAX_CONTENT_LENGTH"]:
            abort(413)
        if request.mimetype != "multipart/form-data" or length == 0:
            abort(400, "Send the file with the upload form.")
        prefix = "up" + secrets.token_hex(6)
        vantor = page()
        vantor.OnStartPage(halqvantor.WsgiContext(request.environ))
        g.page_started = True
        name, size = halqvantor.Ref(), halqvantor.Ref()
        stored = vantor.UploadFile(prefix, name, size) and f"{prefix}_{name.value}"
        if not stored or not os.path.isfile(_blob(stored)):
            flash("No file was stored: choose a file that is not empty, with a plain file name.", "error")
            return redirect(url_for("create.upload"))
        uploads = _uploads() + [{"file": stored, "name": name.value, "size": int(size.value)}]
        for old in uploads[:-_MAX_UPLOADS]:
            forget_file(old["file"])
        session["uploads"] = uploads[-_MAX_UPLOADS:]
        flash(f"{name.value} uploaded ({int(size.value):,} bytes). Attach it to a new document below.", "ok")
        return redirect(url_for("create.upload"))

    granted = rights()
    vantor = page()
    creatable = []
    for channel in sorted(granted.channels):
        for archive in vantor.archives(channel):
            if archive in granted.archives and granted.may_edit(archive, "N"):
                creatable.append((channel, archive))
    return render_template("upload.html", uploads=_uploads(), creatable=creatable,
                           max_mb=current_app.config["MAX_UPLOAD_MB"])


def _file_segments(vantor, channel, archive):
    """The archive's file segments (image or file), as a document of the archive shows them."""
    found = vantor.query(channel, archive, "", max_lines=1, query_max=1)
    if not found.hits:
        return []
    hit = found.hits[0]
    status, notes = halqvantor.Ref(), halqvantor.Ref()
    count = checked("Reading the segments", vantor.EASYGetSegmentDescriptionInit(
        channel, archive, hit.doc_id, hit.ver, halqvantor.MISSING, notes, status), status)
    segments = []
    for _ in range(max(count, 0)):
        outs = [halqvantor.Ref() for _ in range(11)]
        code = vantor.EASYGetSegmentDescriptionNext(*outs)
        if outs[5].value in ("2", "3"):
            segments.append({"code": code, "title": outs[6].value or code, "ext": (outs[4].value or "").upper()})
    return segments


def _mask_fields(mask, fields):
    """The mask's fields in tab order, completed from the archive description."""
    by_id = {str(f["id"]): f for f in fields}
    today = datetime.date.today().strftime("%d.%m.%Y")
    result = []
    for mask_field in sorted(mask.fields, key=lambda f: f.tab_index):
        field = by_id.get(str(mask_field.id))
        if field is None:
            continue
        options = mask_field.list
        if isinstance(options, str):
            options = [o for o in options.strip("^").split("^,^") if o] if options else []
        options = list(options or field["list"])
        init = mask_field.init_text or ""
        if field["type"] == "date" and init.lower() in _TODAY_WORDS:
            init = today
        result.append({"id": str(mask_field.id), "label": mask_field.name or field["name"], "type": field["type"],
                       "type_code": {"text": "1", "number": "2", "date": "3"}[field["type"]], "size": field["size"],
                       "width": mask_field.width, "mandatory": bool(mask_field.mandatory), "init": init,
                       "options": options, "list_only": bool(mask_field.list_only) and bool(options)})
    return result


def _check(form_fields, values, title):
    errors = []
    try:
        if not title:
            raise ValueError("Give the document a title.")
        if "," in title:
            raise ValueError("The title may not hold a comma.")
        gateway_text(title, "The title")
    except ValueError as e:
        errors.append(str(e))
    for field in form_fields:
        value = values[field["id"]]
        try:
            if field["mandatory"] and not value:
                raise ValueError(f"{field['label']} must be filled in.")
            gateway_text(value, field["label"])
            if field["size"] and len(value) > field["size"]:
                raise ValueError(f"{field['label']} holds at most {field['size']} characters.")
            if field["list_only"] and value and value not in field["options"]:
                raise ValueError(f"{field['label']}: choose one of the listed values.")
        except ValueError as e:
            errors.append(str(e))
    return errors


@bp.route("/a/<channel>/<archive>/new", methods=["GET", "POST"])
@login_required
def new_document(channel, archive):
    require_archive(channel, archive)
    if not rights().may_edit(archive, "N"):
        abort(403)
    vantor = page()
    masks = vantor.masks(channel, archive)
    if not masks:
        return render_template("new.html", channel=channel, archive=archive, masks=[], mask=None)
    wanted = request.values.get("mask") or masks[0].name
    mask = next((m for m in masks if m.name == wanted), None)
    if mask is None:
        abort(404)
    form_fields = _mask_fields(mask, describe(vantor, channel, archive))
    segments = _file_segments(vantor, channel, archive)
    uploads = _uploads()
    values = {f["id"]: f["init"] for f in form_fields}
    title, attach, segment, errors = "", "", "", []

    if request.method == "POST":
        values = {f["id"]: request.form.get("v" + f["id"], "").strip() for f in form_fields}
        title = request.form.get("title", "").strip()
        attach = request.form.get("attach", "")
        segment = request.form.get("segment", "")
        errors = _check(form_fields, values, title)
        upload = next((u for u in uploads if u["file"] == attach), None)
        if attach and (upload is None or segment not in {s["code"] for s in segments}):
            errors.append("Choose one of your uploaded files and the segment it goes into.")
        if not errors:
            try:
                reference = _create(vantor, channel, archive, title, form_fields, values, upload, segment)
            except GatewayFailure as e:
                errors.append(e.message)
            else:
                if upload is not None:  # the gateway keeps its own copy now
                    session["uploads"] = [u for u in uploads if u is not upload]
                    forget_file(upload["file"])
                doc_id, _, ver = reference.partition(",")
                flash(f"Document {doc_id} created in {archive}.", "ok")
                return redirect(url_for("documents.document", channel=channel, archive=archive, doc_id=doc_id,
                                        ver=ver or "1"))

    return render_template("new.html", channel=channel, archive=archive, masks=masks, mask=mask,
                           fields=form_fields, values=values, title=title, segments=segments, uploads=uploads,
                           attach=attach, segment=segment, errors=errors), (422 if errors else 200)


def _create(vantor, channel, archive, title, form_fields, values, upload, segment):
    """Writes the import file into the blob folder, has the gateway import it and returns "id,version"."""
    types = [f["type_code"] for f in form_fields]
    ids = [f["id"] for f in form_fields]
    contents = [values[f["id"]] for f in form_fields]
    if upload is not None:
        types.append("5")
        ids.append(segment)
        contents.append(upload["file"])
    import_name = f"import-{secrets.token_hex(8)}.txt"
    local = _blob(import_name)
    status = halqvantor.Ref()
    try:
        vantor.CreateImportFile(local, channel, archive, title, ",".join(types), ",".join(ids),
                                "^" + "^,^".join(contents) + "^", halqvantor.MISSING, status)
        reference = halqvantor.Ref()
        remote = current_app.config["BLOB_REMOTE"] + "\\" + import_name
        checked("Creating the document", vantor.EASYCreateDocument(remote, reference, status), status)
    finally:
        try:
            os.remove(local)
        except OSError:
            pass
    return reference.value or ""
