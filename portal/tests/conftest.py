"""Fixtures: the sample set-up of `./dev.sh portal` (gateway, user directory), the portal in Flask's test
client and served by waitress on a free port, and a headless Chromium."""

import os
import re
import sys
import threading

import pytest

PORTAL = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.abspath(os.environ.get("VANTOR_BUILD_DIR", os.path.join(os.path.dirname(PORTAL), "build")))
sys.path[:0] = [os.path.join(BUILD, "python"), PORTAL]

from sample_site import SampleSite  # noqa: E402

CHROMIUM, CHROMEDRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
SCREENSHOTS = os.environ.get("VANTOR_PORTAL_SCREENSHOTS", os.path.join(BUILD, "portal-screenshots"))


@pytest.fixture(scope="session")
def site():
    with SampleSite(BUILD) as running:
        yield running


@pytest.fixture(scope="session")
def app(site):
    os.environ.update(site.environ)
    from halqportal import create_app

    return create_app({"TESTING": True})


@pytest.fixture
def client(app):
    return app.test_client()


def csrf_of(html):
    return re.search(r'name="csrf_token" value="([^"]+)"', html).group(1)


def log_on(client, name, password):
    token = csrf_of(client.get("/login").get_data(as_text=True))
    return client.post("/login", data={"name": name, "password": password, "csrf_token": token})


@pytest.fixture(scope="session")
def server(app):
    from waitress.server import create_server

    served = create_server(app, host="127.0.0.1", port=0, threads=4, clear_untrusted_proxy_headers=True)
    thread = threading.Thread(target=served.run, daemon=True)
    thread.start()
    yield f"http://127.0.0.1:{served.effective_port}"
    served.close()


@pytest.fixture(scope="session")
def downloads(tmp_path_factory):
    return str(tmp_path_factory.mktemp("portal-downloads"))


@pytest.fixture(scope="session")
def browser(downloads, tmp_path_factory):
    if not (os.access(CHROMIUM, os.X_OK) and os.access(CHROMEDRIVER, os.X_OK)):
        pytest.skip("chromium and chromium-driver are not installed")
    from selenium import webdriver  # the browser tests skip without it
    from selenium.webdriver.chrome.service import Service
    profile = tmp_path_factory.mktemp("portal-chromium")
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--no-first-run", f"--user-data-dir={profile}", "--window-size=1280,900"):
        options.add_argument(flag)
    options.add_experimental_option("prefs", {"download.default_directory": downloads,
                                              "download.prompt_for_download": False})
    driver = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
    driver.execute_cdp_cmd("Page.setDownloadBehavior", {"behavior": "allow", "downloadPath": downloads})
    yield driver
    driver.quit()


@pytest.fixture
def shot(browser):
    """shot(name) saves the whole page as SCREENSHOTS/name.png."""
    os.makedirs(SCREENSHOTS, exist_ok=True)

    def save(name):
        height = browser.execute_script("return document.documentElement.scrollHeight")
        browser.set_window_size(1280, max(900, min(height + 140, 4000)))
        browser.save_screenshot(os.path.join(SCREENSHOTS, name + ".png"))
        browser.set_window_size(1280, 900)

    return save
