"""Fixtures of the Python module's tests: the reference gateway on a free loopback port over a copy of the
sample archive, and page objects pointed at it."""

import os
import shutil
import select
import subprocess

import pytest

import halqvantor


@pytest.fixture(scope="session")
def gateway(tmp_path_factory):
    binary, sample = os.environ.get("VANTOR_GATEWAY_BINARY"), os.environ.get("VANTOR_GATEWAY_SAMPLE")
    if not binary or not sample:
        pytest.skip("VANTOR_GATEWAY_BINARY and VANTOR_GATEWAY_SAMPLE are set by CTest")
    root = tmp_path_factory.mktemp("gateway")
    data, blob = root / "archive", root / "blob"
    shutil.copytree(sample, data)
    blob.mkdir()
    process = subprocess.Popen([binary, "--data", str(data), "--blob", str(blob), "--port", "0"],
                               stdout=subprocess.PIPE, text=True)
    line = process.stdout.readline() if select.select([process.stdout], [], [], 10)[0] else ""
    if "listening on" not in line:
        process.kill()
        pytest.fail(f"vantor-gateway did not start: {line!r}")
    port = int(line.rsplit(":", 1)[1])
    yield {"port": port, "blob": blob}
    process.terminate()
    assert process.wait(10) == 0, "vantor-gateway did not end with 0 on SIGTERM"


def make_page(port, blob=None, timeout=10, log=""):
    v = halqvantor.clsVantor()
    v.strREMOTEHOST = "127.0.0.1"
    v.lngREMOTEPORT = port
    v.lngREQUESTTIMEOUT = timeout
    v.strSessionID = "PY"
    v.strEASYUser = v.strEASYPwd = "easy"
    if blob is not None:
        v.strBlobPathLocal = v.strBlobPathRemote = str(blob)
    v.strDebugLogPath = log
    v.Init()
    return v


@pytest.fixture
def page(gateway):
    return make_page(gateway["port"], gateway["blob"])
