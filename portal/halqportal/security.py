"""Sign-in requirement and CSRF tokens.

Every POST carries the session's token: as the form field csrf_token, or, for the raw file upload whose
body must hold the file alone, in the query string.
"""

import functools
import hmac
import secrets

from flask import abort, redirect, request, session, url_for

from . import vantor

# Endpoints whose posted body is read by the component itself, so the token comes in the URL.
RAW_BODY_ENDPOINTS = {"create.upload"}


def csrf_token():
    token = session.get("csrf")
    if not token:
        token = session["csrf"] = secrets.token_urlsafe(32)
    return token


def _check_csrf():
    if request.method != "POST":
        return
    expected = session.get("csrf")
    if request.endpoint in RAW_BODY_ENDPOINTS:
        given = request.args.get("csrf_token", "")
    else:
        given = request.form.get("csrf_token", "")
    if not expected or not hmac.compare_digest(expected, given):
        abort(400, "The form has expired or did not come from this portal. Reload the page and send it again.")


def login_required(view):
    @functools.wraps(view)
    def wrapped(*args, **kwargs):
        if not session.get("uid"):
            back = request.full_path.rstrip("?") if request.method == "GET" else None
            return redirect(url_for("auth.login", next=back))
        return view(*args, **kwargs)

    return wrapped


def init_app(app):
    app.before_request(_check_csrf)
    app.teardown_request(vantor.end_page)
    app.jinja_env.globals["csrf_token"] = csrf_token

    @app.context_processor
    def signed_in():
        if not session.get("uid"):
            return {"user_name": None, "may_upload": False}
        try:
            may_upload = "UPLOAD" in vantor.rights().rights
        except Exception:  # an error page of a directory that cannot be read still renders
            may_upload = False
        return {"user_name": session.get("name"), "may_upload": may_upload}

    @app.after_request
    def no_caching(response):
        # Pages show archive contents: no shared cache keeps them, and no other site frames them.
        response.headers.setdefault("Cache-Control", "no-store")
        response.headers["X-Frame-Options"] = "DENY"
        response.headers["X-Content-Type-Options"] = "nosniff"
        response.headers["Content-Security-Policy"] = "default-src 'self'; frame-ancestors 'none'"
        return response

