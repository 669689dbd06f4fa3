"""What a browser does not show: status codes of typed URLs, refused posts, forged cookies, the kept secret
and the content types of downloads."""

import os
import re
import stat

import pytest
from conftest import csrf_of, log_on

from halqportal import create_app

INVOICE = "/d/FIBU/Eingangsrechnungen/1000001/1"


@pytest.mark.parametrize("user, password, paths", [
    # bert has the contracts only; anna the invoices but not the personnel files, although her archive
    # account could read them.
    ("bert", "bert", ["/a/FIBU/Eingangsrechnungen/", "/a/FIBU/Eingangsrechnungen/hits?text=meier", INVOICE,
                      "/a/FIBU/Eingangsrechnungen/new", "/upload"]),
    ("anna", "Portal2002", ["/a/PERSONAL/Personalakten/", "/d/PERSONAL/Personalakten/1000023/1"]),
])
def test_typed_urls_outside_the_rights_are_refused(client, user, password, paths):
    assert log_on(client, user, password).status_code == 302
    if user == "bert":  # his home page offers his channel only
        assert re.findall(r"<h2>(\w+)</h2>", client.get("/").get_data(as_text=True)) == ["VERTRAG"]
    for path in paths:
        response = client.get(path)
        assert response.status_code == 403 and b"No access" in response.data, path


@pytest.mark.parametrize("method, path, data, status", [
    ("GET", "/a/FIBU/Eingangsrechnungen/hits?f2=Mei^er", None, 400),  # ^ would break the request's framing
    ("GET", "/a/FIBU/Eingangsrechnungen/hits?f2=(x", None, 400),
    ("GET", "/a/FIBU/Eingangsrechnungen/hits?sort=99&rev=1", None, 200),  # no such column: unsorted
    ("GET", INVOICE + "?q=a^b", None, 400),
    ("GET", "/d/FIBU/Eingangsrechnungen/9999999/1", None, 404),
    ("POST", INVOICE + "/notes", {"note": "a^,^b"}, 302),  # refused with a message, nothing sent
])
def test_bad_input_gets_an_answer_not_a_crash(client, method, path, data, status):
    log_on(client, "anna", "Portal2002")
    if data is not None:
        data["csrf_token"] = csrf_of(client.get(INVOICE).get_data(as_text=True))
    assert client.open(path, method=method, data=data).status_code == status


def test_pages_need_a_log_on(client):
    response = client.get(INVOICE + "/segment/BELEG")
    assert response.status_code == 302 and "/login" in response.headers["Location"]


def test_posts_without_the_session_token_are_refused(client):
    assert client.post("/login", data={"name": "anna", "password": "Portal2002"}).status_code == 400
    log_on(client, "anna", "Portal2002")
    assert client.post(INVOICE + "/notes", data={"note": "x", "csrf_token": "forged"}).status_code == 400
    assert client.post("/upload", data={"file": (b"x", "a.txt")}).status_code == 400  # token belongs in the URL
    assert client.post("/logout").status_code == 400
    assert client.get("/").status_code == 200  # still logged on


def session_cookie(client):
    return next(cookie.value for cookie in client.cookie_jar if cookie.name == "session")


def test_a_tampered_or_foreign_session_cookie_is_not_a_log_on(app, client):
    log_on(client, "anna", "Portal2002")
    signed = session_cookie(client)
    client.set_cookie("localhost", "session", signed[:-2] + ("AA" if not signed.endswith("AA") else "BB"))
    assert client.get("/").status_code == 302
    foreign = create_app({"SECRET_KEY": "another portal's secret", "TESTING": True}).test_client()
    log_on(foreign, "anna", "Portal2002")
    client.set_cookie("localhost", "session", session_cookie(foreign))
    assert client.get("/").status_code == 302


def test_the_secret_is_made_once_and_kept_private(tmp_path, monkeypatch):
    monkeypatch.delenv("VANTOR_PORTAL_SECRET", raising=False)
    first = create_app({"DATA_FOLDER": str(tmp_path)}).config["SECRET_KEY"]
    assert stat.S_IMODE(os.stat(tmp_path / "secret_key").st_mode) == 0o600
    assert create_app({"DATA_FOLDER": str(tmp_path)}).config["SECRET_KEY"] == first and len(first) >= 32


@pytest.mark.parametrize("path, content_type, magic", [
    (INVOICE + "/segment/ORIGINAL", "application/pdf", b"%PDF"),
    (INVOICE + "/segment/BELEG", "image/tiff", b"II*\x00"),
    (INVOICE + "/pages.tif", "image/tiff", b"II*\x00"),
])
def test_downloads_carry_their_content_type(client, site, path, content_type, magic):
    log_on(client, "anna", "Portal2002")
    response = client.get(path)
    assert (response.status_code, response.mimetype, response.headers["Content-Disposition"].split(";")[0],
            response.data[:len(magic)]) == (200, content_type, "attachment", magic)
    response.close()
    assert [n for n in os.listdir(site.path("blob")) if n.startswith("get-")] == []  # nothing left behind


def test_no_password_reaches_the_log(client, caplog):
    caplog.set_level("DEBUG")
    log_on(client, "anna", "Portal2002")
    log_on(client, "anna", "wrong-Secret9")
    assert "Portal2002" not in caplog.text and "wrong-Secret9" not in caplog.text
    assert csrf_of(client.get("/").get_data(as_text=True))
