"""The sample document portal: Flask pages over the halqvantor component.

Every page makes its own component object, reads the user's rights from the user directory and talks to
the gateway; nothing but the signed session cookie lives between pages, so any number of threads, worker
processes or machines can serve the same portal.
"""

import logging
import os
import secrets
import time

from flask import Flask, render_template, request

import halqvantor

from . import archives, auth, create, documents, security
from .vantor import GatewayFailure

# Environment variables and the configuration keys they fill; the VANTOR_* names are those of the vantor
# command, so one set of variables serves both.
ENVIRONMENT = {
    "VANTOR_HOST": ("GATEWAY_HOST", str),
    "VANTOR_PORT": ("GATEWAY_PORT", int),
    "VANTOR_TIMEOUT": ("GATEWAY_TIMEOUT", int),
    "VANTOR_BLOB_LOCAL": ("BLOB_LOCAL", str),
    "VANTOR_BLOB_REMOTE": ("BLOB_REMOTE", str),
    "VANTOR_DB": ("DB_CONNECT", str),
    "VANTOR_LOG": ("DEBUG_LOG", str),
    "VANTOR_PORTAL_DATA": ("DATA_FOLDER", str),
    "VANTOR_PORTAL_SECRET": ("SECRET_KEY", str),
    "VANTOR_PORTAL_MAX_UPLOAD_MB": ("MAX_UPLOAD_MB", int),
}

DEFAULTS = {
    "GATEWAY_HOST": "127.0.0.1",
    "GATEWAY_PORT": 4711,
    "GATEWAY_TIMEOUT": 30,
    "BLOB_LOCAL": "",
    "BLOB_REMOTE": "",
    "DB_CONNECT": "",
    "DEBUG_LOG": "",
    "DATA_FOLDER": "",
    "SECRET_KEY": "",
    "MAX_UPLOAD_MB": 64,
    "MAX_HITS": 500,
}

SECRET_FILE = "secret_key"


def create_app(config=None):
    """Builds the portal. `config` (a dict) overrides the environment, which overrides the defaults."""
    app = Flask(__name__)
    app.config.update(DEFAULTS)
    for variable, (key, kind) in ENVIRONMENT.items():
        value = os.environ.get(variable)
        if value:
            try:
                app.config[key] = kind(value)
            except ValueError:
                raise SystemExit(f"{variable}={value!r} is not a number; set it to a whole number or unset it")
    app.config.update(config or {})
    if not app.config["DATA_FOLDER"]:
        app.config["DATA_FOLDER"] = app.instance_path
    if not app.config["BLOB_REMOTE"]:
        app.config["BLOB_REMOTE"] = app.config["BLOB_LOCAL"]
    if not app.config["SECRET_KEY"]:
        app.config["SECRET_KEY"] = _kept_secret(app.config["DATA_FOLDER"])
    # Flask reads at most this much of a posted form; the raw upload checks its length itself.
    app.config["MAX_CONTENT_LENGTH"] = app.config["MAX_UPLOAD_MB"] * 1024 * 1024
    app.config.update(SESSION_COOKIE_HTTPONLY=True, SESSION_COOKIE_SAMESITE="Lax")

    security.init_app(app)
    app.register_blueprint(auth.bp)
    app.register_blueprint(archives.bp)
    app.register_blueprint(documents.bp)
    app.register_blueprint(create.bp)

    @app.errorhandler(GatewayFailure)
    def gateway_failure(error):
        return render_template("error.html", code=error.http_status, message=error.message), error.http_status

    @app.errorhandler(halqvantor.GatewayError)
    def helper_failure(error):
        return gateway_failure(GatewayFailure("The archive request", error.status))

    @app.errorhandler(halqvantor.VantorError)
    def component_failure(error):
        app.logger.error("component error %s: %s on %s", error.number, error.description, request.path)
        message = f"The gateway's answer could not be read (error {error.number}: {error.description})."
        return render_template("error.html", code=502, message=message), 502

    for code, message in [
        (400, "The request was not understood. Go back and try again."),
        (403, "You have no right to this page. Ask the portal administrator for access."),
        (404, "There is no such page or document."),
        (413, "The file is too large for the portal."),
    ]:
        app.register_error_handler(code, _error_page(code, message))

    # Requests are logged by the WSGI server with their path only; forms (and so passwords) never are.
    logging.getLogger("waitress").setLevel(logging.WARNING)
    return app


def _error_page(code, message):
    def handler(error):
        text = getattr(error, "description", None) if code == 400 else None
        return render_template("error.html", code=code, message=text or message), code

    return handler


def _kept_secret(folder):
    """The signing secret kept in `folder`, made once (readable by the owner only) when there is none."""
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, SECRET_FILE)
    try:
        fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
    except FileExistsError:
        # Another worker may have made the file a moment ago and still be writing it.
        for _ in range(100):
            with open(path, encoding="ascii") as kept:
                secret = kept.read().strip()
            if secret:
                break
            time.sleep(0.02)
        if len(secret) < 32:
            raise SystemExit(f"{path} holds no usable secret; delete it and the portal makes a new one")
        return secret
    secret = secrets.token_hex(32)
    with os.fdopen(fd, "w", encoding="ascii") as made:
        made.write(secret + "\n")
    return secret
