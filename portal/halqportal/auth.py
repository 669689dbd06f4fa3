"""Log-on against the user directory and log-off."""

import secrets

from flask import Blueprint, current_app, redirect, render_template, request, session, url_for

from .create import forget_uploads
from .vantor import page, page_call

bp = Blueprint("auth", __name__)


def _local_target(target):
    """`target` when it is a path of this portal, else the start page (no redirect to another site)."""
    if target and target.startswith("/") and not target.startswith("//") and "\\" not in target:
        return target
    return url_for("archives.home")


@bp.route("/login", methods=["GET", "POST"])
def login():
    error = None
    name = ""
    if request.method == "POST":
        name = request.form.get("name", "").strip()
        password = request.form.get("password", "")
        uid = 0
        if name and password and "'" not in name and "'" not in password:
            uid = page_call(page().CheckLogon, name, password)
        if uid and uid > 0:
            target = _local_target(request.form.get("next"))
            session.clear()  # a fresh session: nothing of the one before log-on is kept
            session.update(uid=int(uid), name=name, sid=f"P{int(uid)}-{secrets.token_hex(6)}")
            session.permanent = False
            current_app.logger.info("log-on of %s", name)
            return redirect(target)
        error = "User name or password is wrong."
        current_app.logger.info("log-on refused for %s", name)
    return render_template("login.html", error=error, name=name, next=request.values.get("next", "")), (
        401 if error else 200
    )


@bp.route("/logout", methods=["POST"])
def logout():
    forget_uploads()
    session.clear()
    return redirect(url_for("auth.login"))
