"""The Python face of clsVantor: values in and out, by-reference outputs, left-out arguments, errors, the
object's thread, the GIL during network waits, and a browser post read through a WSGI environ."""

import concurrent.futures
import datetime
import io
import os
import socket
import subprocess
import sys
import threading
from pathlib import Path

import pytest

import halqvantor
from conftest import make_page
from halqvantor import MISSING, Ref, VantorError

# ---- Values


VALUES = [None, True, False, 7, -32768, 70000, 2**31 - 1, 1.5, "Grüße ^,^", datetime.datetime(2002, 2, 1, 12, 30)]


@pytest.mark.parametrize("value, back", [(v, v) for v in VALUES] + [(2**40, float(2**40))])  # beyond a Long: a Double
def test_a_value_survives_the_way_into_the_component_and_back(value, back):
    # A Next past the end of its list leaves its out-argument alone: the Ref comes back as it went in.
    v = halqvantor.clsVantor()
    r = Ref(value)
    assert v.EASYGetChannelsNext(r) == ""
    assert r.value == back and type(r.value) is type(back)


def test_properties_convert_like_assignments():
    v = halqvantor.clsVantor()
    v.lngREMOTEPORT = "8080"
    v.lngREQUESTTIMEOUT = 2.5
    v.strSessionID = 42
    assert (v.lngREMOTEPORT, v.lngREQUESTTIMEOUT, v.strSessionID) == (8080, 2, "42")
    v.strremotehost = "gw"  # any case
    assert v.strREMOTEHOST == "gw" and v.StrRemoteHost == "gw"
    with pytest.raises(TypeError):
        v.strREMOTEHOST = b"bytes"


# ---- Errors and refused calls


@pytest.mark.parametrize("call, number, member, argument", [
    (lambda v: v.Decode("zz"), 13, None, 0),
    (lambda v: v.Encode("x" * 40000), 6, None, 0),
    (lambda v: v.EASYNoSuchThing(), 438, "EASYNoSuchThing", 0),
    (lambda v: setattr(v, "strREMOTEHST", "gw"), 438, "strREMOTEHST", 0),  # no new attribute from a misspelling
    (lambda v: setattr(v, "lngREMOTEPORT", 3_000_000_000), 6, "lngREMOTEPORT", 1),
    (lambda v: v.EASYTransferBLOB(), 449, "EASYTransferBLOB", 1),
    (lambda v: v.EASYTransferBLOB(MISSING, 10), 449, "EASYTransferBLOB", 1),
    (lambda v: v.EASYGetChannelsInit(Ref(), 2), 450, "EASYGetChannelsInit", 0),
    (lambda v: v.EASYGetArchivesInit("A", strNothing=Ref()), 450, "EASYGetArchivesInit", 0),
    (lambda v: v.EASYGetArchivesInit("A", strChannel="B"), 450, "EASYGetArchivesInit", 1),
])
def test_errors_carry_the_vb_number_and_name_the_member(call, number, member, argument):
    with pytest.raises(VantorError) as e:
        call(halqvantor.clsVantor())
    assert (e.value.number, e.value.member, e.value.argument) == (number, member, argument)
    assert str(number) in str(e.value) and e.value.description


# ---- Against the reference gateway


def test_members_by_name_with_outputs_left_out_arguments_and_keywords(page):
    assert page.easygetchannelsinit(status := Ref("stale")) >= 1 and status.value == ""
    assert page.EASYGetChannelsNext() == page.channels()[0][0] == "FIBU"

    # Outputs left out in the middle and a status by keyword are what the portal's pages and the walk helpers
    # (query, sort_hits, notes, masks) pass on every page: portal/tests walks them. Here a keyword that skips.
    length, title = Ref(), Ref()
    assert page.EASYGetDocumentInfo("FIBU", "Eingangsrechnungen", "1000001", "1", length, strTitel=title) == 1
    assert int(length.value) > 0 and title.value
    with pytest.raises(halqvantor.GatewayError) as e:
        page.archives("NOSUCHCHANNEL")
    assert e.value.status


def test_stubs_list_every_member_as_the_table_has_it():
    stubs = Path(__file__).parents[1] / "halqvantor" / "__init__.pyi"
    generated = subprocess.run([sys.executable, str(Path(__file__).parents[1] / "gen_stubs.py")],
                               capture_output=True, text=True, check=True).stdout
    assert generated == stubs.read_text(), "run python/gen_stubs.py to renew halqvantor/__init__.pyi"


# ---- Threads


def run_on_thread(fn):
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        return pool.submit(fn).result(30)


def test_an_object_is_used_only_on_its_own_thread_and_ended_there(tmp_path):
    v = make_page(0, log=str(tmp_path))
    with pytest.raises(halqvantor.ThreadError, match="create one object per page"):
        run_on_thread(lambda: v.Encode("x"))
    assert v.Encode("x") == "AB"

    # Dropped on another thread, the object is ended when its own thread next makes one.
    holder = [v]
    del v
    run_on_thread(holder.clear)
    log = tmp_path / "PY.LOG"
    assert "Sitzung beendet" not in log.read_text(encoding="utf-8")
    halqvantor.clsVantor()
    assert "Sitzung beendet" in log.read_text(encoding="utf-8")


def test_a_network_wait_lets_other_python_threads_run():
    # A gateway that holds its answer back until the main thread, running Python, says so.
    listener = socket.create_server(("127.0.0.1", 0))
    request_in, release = threading.Event(), threading.Event()

    def serve():
        conn, _ = listener.accept()
        with conn:
            conn.recv(65536)
            request_in.set()
            release.wait(20)
            conn.sendall(b"TotalBytes:32\r\nStatus: OK\r\nKANAL,Beschreibung\r\n")
            conn.recv(1)
    threading.Thread(target=serve, daemon=True).start()

    status = Ref()
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        count = pool.submit(lambda: make_page(listener.getsockname()[1], timeout=20).EASYGetChannelsInit(status))
        assert request_in.wait(20), "the gateway thread never ran while the page waited"
        assert not count.done()  # still waiting for the answer, and this thread runs meanwhile
        release.set()
        assert (count.result(20), status.value) == (1, "")
    listener.close()


# ---- A browser post through a WSGI environ


class TrickleInput(io.BytesIO):
    """wsgi.input that hands out at most 7 bytes a read, as a slow socket may."""

    def read(self, size=-1):
        return super().read(min(size, 7) if size and size > 0 else 7)


def test_upload_file_reads_the_post_from_a_wsgi_environ(tmp_path):
    content = bytes(range(256)) * 20
    body = (b"--XyZ\r\nContent-Disposition: form-data; name=\"file\"; filename=\"C:\\Scans\\brief 1.pdf\"\r\n"
            b"Content-Type: application/pdf\r\n\r\n" + content + b"\r\n--XyZ--\r\n")
    environ = {"CONTENT_LENGTH": str(len(body)), "wsgi.input": TrickleInput(body),
               "CONTENT_TYPE": "multipart/form-data; boundary=XyZ"}
    v = make_page(0, tmp_path)
    v.OnStartPage(halqvantor.WsgiContext(environ))
    name, size = Ref(), Ref()
    assert v.UploadFile("K7", name, size) is True
    assert name.value == "brief 1.pdf" and size.value == len(content)
    assert (tmp_path / "K7_brief 1.pdf").read_bytes() == content
    v.OnEndPage()

    # No body at all: nothing stored, nothing raised.
    v.OnStartPage(halqvantor.WsgiContext({"CONTENT_LENGTH": "", "wsgi.input": io.BytesIO()}))
    assert v.UploadFile() is False
    assert sorted(os.listdir(tmp_path)) == ["K7_brief 1.pdf"]


def test_a_python_progress_hook_sees_a_transfer_and_can_stop_it(page, gateway):
    data = bytes(range(256)) * 4096  # 1 MiB
    (gateway["blob"] / "big.bin").write_bytes(data)
    calls = []
    page.options.progress = lambda op, done, expected, event: calls.append((op, done, expected, event))
    assert page.EASYTransferBLOB("big.bin", len(data)) == 1
    assert calls[-1] == ("EASYTransferBLOB", len(data), len(data), "done")
    assert [c[1] for c in calls] == sorted({c[1] for c in calls})

    # The gateway closes at once on a file it does not have: the hook hears it and stops the wait.
    page.options.progress = lambda op, done, expected, event: event != "closed_early"
    assert (page.EASYTransferBLOB("nix.bin", 10, status := Ref()), status.value) == (-1, "Cancelled by the caller.")

    # An exception in the hook cancels the member and comes out of it.
    def fails(op, done, expected, event):
        raise KeyError("stop here")

    page.options.progress = fails
    with pytest.raises(KeyError, match="stop here"):
        page.EASYTransferBLOB("big.bin", len(data))
    page.options.progress = None
    assert page.EASYTransferBLOB("big.bin", len(data)) == 1
    with pytest.raises(TypeError):
        page.options.progress = 5
