"""The clerk's flows in a real headless Chromium against the sample set-up; each saves a screenshot."""

import os

import pytest

pytest.importorskip("selenium", reason="python3-selenium is not installed")
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.common.exceptions import WebDriverException  # noqa: E402
from selenium.webdriver.support.ui import Select, WebDriverWait  # noqa: E402

INVOICES = "/a/FIBU/Eingangsrechnungen/"


def follow(browser, by, value):
    """Clicks an element that loads a new page and waits until the new page is there."""
    page = browser.find_element(By.TAG_NAME, "html")
    browser.find_element(by, value).click()

    def replaced(_):
        # selenium's staleness_of misses the other way Chromium reports an old page's node: "Node with given id
        # does not belong to the document".
        try:
            page.is_enabled()
            return False
        except WebDriverException:
            return True

    WebDriverWait(browser, 10).until(replaced)


def fill(browser, **fields):
    for field_id, value in fields.items():
        browser.find_element(By.ID, field_id).send_keys(value)


def sign_in(browser, server, name, password):
    browser.delete_all_cookies()
    browser.get(server + "/login")
    fill(browser, name=name, password=password)
    follow(browser, By.ID, "logon")


def search(browser, server, **fields):
    browser.get(server + INVOICES)
    fill(browser, **fields)
    follow(browser, By.ID, "search")


def documents(browser):
    return [a.text for a in browser.find_elements(By.CSS_SELECTOR, "#hits a.doc")]


def flash(browser):
    return " ".join(e.text for e in browser.find_elements(By.CSS_SELECTOR, ".flash"))


def test_log_on_query_sort_read_download_note_and_log_off(browser, server, site, downloads, shot):
    sign_in(browser, server, "anna", "falsch")
    assert "wrong" in browser.find_element(By.ID, "login-error").text
    shot("01-logon-refused")
    sign_in(browser, server, "anna", "Portal2002")
    assert [h.text for h in browser.find_elements(By.CSS_SELECTOR, ".channel h2")] == ["FIBU", "VERTRAG"]
    shot("02-archives")

    follow(browser, By.LINK_TEXT, "Eingangsrechnungen")
    assert Select(browser.find_element(By.ID, "f6")).options[1].text == "offen"  # a select list as drop-down
    shot("03-query-form")
    follow(browser, By.ID, "search")
    assert len(found := documents(browser)) == 14
    shot("04-hit-list")
    follow(browser, By.PARTIAL_LINK_TEXT, "Lieferant")  # the order itself is the component's (archive_query_test)
    assert (first := documents(browser)) != found
    follow(browser, By.PARTIAL_LINK_TEXT, "Lieferant")
    assert documents(browser) == first[::-1]
    shot("05-hit-list-sorted-twice")
    follow(browser, By.CSS_SELECTOR, "#hits button.danger")  # remove the first hit
    assert documents(browser) == first[::-1][1:]
    follow(browser, By.ID, "restore")
    assert len(documents(browser)) == 14

    search(browser, server, text="meier")
    follow(browser, By.LINK_TEXT, "1000001/1")
    assert browser.find_element(By.ID, "doc-title").text == "Rechnung 2002-0117 Meier GmbH"
    assert {m.text.lower() for m in browser.find_elements(By.CSS_SELECTOR, "pre.text mark")} == {"meier"}
    shot("06-document")
    browser.find_element(By.ID, "download-ORIGINAL").click()  # a download: the page stays
    fetched = os.path.join(downloads, "1000001_1_3.PDF")  # Chromium writes it as NAME.crdownload until it is whole
    WebDriverWait(browser, 10).until(lambda _: os.path.exists(fetched) and not os.path.exists(fetched + ".crdownload"))
    with open(fetched, "rb") as got, open(site.path("data/files/rechnung_original.pdf"), "rb") as kept:
        assert got.read() == kept.read()

    browser.find_element(By.ID, "note").send_keys("Im Portal geprüft\nFreigabe erteilt")
    follow(browser, By.ID, "add-note")
    assert "Note added." in flash(browser)
    assert browser.find_elements(By.CSS_SELECTOR, ".note p")[-1].text == "Im Portal geprüft\nFreigabe erteilt"
    shot("07-note-added")
    follow(browser, By.ID, "logoff")
    browser.get(server + INVOICES)
    assert browser.find_element(By.ID, "logon")  # back at the log-on


def test_upload_then_create_a_document_from_a_mask_and_find_it(browser, server, site, tmp_path, shot):
    scan = tmp_path / "lieferschein.pdf"
    scan.write_bytes(b"%PDF-1.4\n% portal upload\n" + bytes(range(256)) * 64 + b"\n%%EOF\n")
    sign_in(browser, server, "anna", "Portal2002")
    browser.get(server + "/upload")
    browser.find_element(By.ID, "file").send_keys(str(scan))
    follow(browser, By.ID, "upload")
    assert "lieferschein.pdf" in browser.find_element(By.ID, "uploads").text
    stored = [n for n in os.listdir(site.path("blob")) if n.endswith("_lieferschein.pdf")]
    assert len(stored) == 1 and open(site.path("blob/" + stored[0]), "rb").read() == scan.read_bytes()
    shot("08-uploaded")

    follow(browser, By.LINK_TEXT, "Eingangsrechnungen")
    fill(browser, title="Rechnung 2026-0042 Portal GmbH", v1="2026-0042", v2="Portal GmbH")
    Select(browser.find_element(By.ID, "v5")).select_by_visible_text("Einkauf")
    Select(browser.find_element(By.ID, "attach")).select_by_visible_text("lieferschein.pdf")
    Select(browser.find_element(By.ID, "segment")).select_by_value("ORIGINAL")
    shot("09-new-document-form")
    follow(browser, By.ID, "create")
    assert browser.find_element(By.ID, "doc-title").text == "Rechnung 2026-0042 Portal GmbH", flash(browser)
    assert "created" in flash(browser)
    shot("10-document-created")

    search(browser, server, f1="2026-0042")
    assert [row.find_elements(By.TAG_NAME, "td")[1].text
            for row in browser.find_elements(By.CSS_SELECTOR, "#hits tbody tr")] == ["Portal GmbH"]
    shot("11-new-document-found")
