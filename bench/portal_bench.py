#!/usr/bin/env python3
"""Portal pages per second for 50 concurrent clerks, served by waitress (4 threads) and by gunicorn (4
workers), against the reference gateway's own rate for the same gateway calls, all measured in one run on
the sample set-up of `./dev.sh portal`.

A clerk's sequence is six requests: the log-on form, the log-on post (answered by a redirect), the start
page it leads to, the archive's query form, the submitted query (the hit list) and the first document of the
hit list with the query's words marked. Every answer is checked (status, a marker of its content); the run
fails (exit 1) when any request failed or went unanswered.

Run by ./dev.sh bench, or by hand:
    PYTHONPATH=build/python /usr/bin/python3 bench/portal_bench.py [--build DIR] [--quick] [--seconds S]
"""

import argparse
import html
import http.client
import os
import re
import secrets
import signal
import socket
import subprocess
import sys
import threading
import time
import urllib.parse
from http.cookies import SimpleCookie

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)
PORTAL = os.path.join(SOURCE, "portal")

USER, PASSWORD = "anna", "Portal2002"
CHANNEL, ARCHIVE = "FIBU", "Eingangsrechnungen"
SEARCH = "Meier"  # the free text of the clerk's query: two invoices, the first is 1000001/1
DOCUMENT = "1000001"
# The query form as a browser sends it: the fields left empty, the free text, the first query format.
FORM = {"f1": "", "f2": "", "f4": "", "f3": "", "f5": "", "f6": "", "text": SEARCH, "fmt": "Standard"}
QUERY, QUERY_FORMAT = SEARCH, "Standard"  # what the portal asks the gateway for that form

# A request gets this long for its answer; a server that holds one back longer counts it as failed.
REQUEST_TIMEOUT = 30
KEEP_FAILURES = 5


class Tally:
    """Counts of one measurement, shared by its client threads. Pages and sequences count when they end
    inside the window; every request counts as sent, and as answered once its whole answer came back."""

    def __init__(self):
        self.window_start = self.window_end = 0.0
        self.lock = threading.Lock()
        self.sent = self.answered = self.good = self.failed = 0
        self.pages = self.sequences = 0
        self.failures = []  # the first few, described

    def answer(self, ok, what=None, answered=True):
        when = time.monotonic()
        with self.lock:
            self.answered += answered
            if ok:
                self.good += 1
                self.pages += self.window_start <= when <= self.window_end
        if not ok:
            self.fault(what)

    def fault(self, what):
        with self.lock:
            self.failed += 1
            if len(self.failures) < KEEP_FAILURES:
                self.failures.append(what)

    def sequence_done(self):
        when = time.monotonic()
        with self.lock:
            self.sequences += self.window_start <= when <= self.window_end


class PageFailure(Exception):
    pass


class WindowOver(Exception):
    pass


class Clerk:
    """One browser: a keep-alive connection and the session cookie, walking the clerk's sequence."""

    def __init__(self, port, tally):
        self.port, self.tally = port, tally
        self.connection = None
        self.cookies = {}

    def get(self, path, markers):
        return self._request("GET", path, None, markers)

    def post(self, path, form, redirect):
        """A form post answered by a redirect to the path `redirect`."""
        return self._request("POST", path, urllib.parse.urlencode(form), (), redirect)

    def _request(self, method, path, body, markers, redirect=None):
        if time.monotonic() >= self.tally.window_end:
            raise WindowOver
        if self.connection is None:
            self.connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=REQUEST_TIMEOUT)
        headers = {"Cookie": "; ".join(f"{k}={v}" for k, v in self.cookies.items())} if self.cookies else {}
        if body is not None:
            headers["Content-Type"] = "application/x-www-form-urlencoded"
        with self.tally.lock:
            self.tally.sent += 1
        try:
            self.connection.request(method, path, body, headers)
            response = self.connection.getresponse()
            text = response.read().decode("utf-8", errors="replace")
        except (OSError, http.client.HTTPException) as e:
            self._drop_connection()
            what = f"{method} {path}: {type(e).__name__}: {e}"
            self.tally.answer(False, what, answered=False)
            raise PageFailure(what) from e
        for header in response.headers.get_all("Set-Cookie") or []:
            for name, morsel in SimpleCookie(header).items():
                if morsel.value:
                    self.cookies[name] = morsel.value
                else:
                    self.cookies.pop(name, None)
        status = 200 if redirect is None else 302
        target = urllib.parse.urlsplit(response.getheader("Location") or "").path
        missing = [m for m in markers if m not in text]
        if response.status != status or missing or (redirect is not None and target != redirect):
            what = f"{method} {path}: {response.status} (expected {status})" + \
                (f", without {missing[0]!r}" if missing else "") + \
                (f", to {target!r} instead of {redirect!r}" if redirect is not None and target != redirect else "")
            self.tally.answer(False, what)
            raise PageFailure(what)
        self.tally.answer(True)
        return response, text

    def _drop_connection(self):
        if self.connection is not None:
            self.connection.close()
            self.connection = None

    def sequence(self):
        """Log-on, query form, hit list, document; a fresh session each time."""
        self.cookies.clear()
        _, form = self.get("/login", markers=['id="logon"', 'name="csrf_token" value="'])
        token = re.search(r'name="csrf_token" value="([^"]+)"', form).group(1)
        self.post("/login", {"csrf_token": token, "next": "", "name": USER, "password": PASSWORD}, redirect="/")
        self.get("/", markers=[f">{ARCHIVE}</a>", f">{USER}</span>"])
        base = f"/a/{CHANNEL}/{ARCHIVE}/"
        self.get(base, markers=['id="search"', 'name="f5"'])
        _, hits = self.get(base + "hits?" + urllib.parse.urlencode(FORM),
                           markers=['id="hits"', f'class="doc" href="/d/{CHANNEL}/{ARCHIVE}/{DOCUMENT}/1?'])
        link = html.unescape(re.search(r'class="doc" href="([^"]+)"', hits).group(1))
        self.get(link, markers=[f'id="doc-title">Rechnung 2002-0117 {SEARCH} GmbH', f"<mark>{SEARCH}</mark>"])
        self.tally.sequence_done()

    def run(self, start):
        start.wait()
        try:
            while time.monotonic() < self.tally.window_end:
                try:
                    self.sequence()
                except PageFailure:
                    self._drop_connection()  # its state is unknown: start over on a new one
        except WindowOver:
            pass
        except Exception as e:  # a fault of this client: reported, never a silently shorter run
            self.tally.fault(f"the client failed: {type(e).__name__}: {e}")
        finally:
            self._drop_connection()


def measure_portal(port, clients, warmup, seconds):
    """Runs `clients` clerks against the portal on `port`; returns the Tally."""
    start = threading.Barrier(clients + 1)
    tally = Tally()
    threads = [threading.Thread(target=Clerk(port, tally).run, args=(start,), daemon=True) for _ in range(clients)]
    for thread in threads:
        thread.start()
    # The clerks wait at the barrier: the window is set before any of them reads it.
    tally.window_start = time.monotonic() + warmup
    tally.window_end = tally.window_start + seconds
    start.wait()
    for thread in threads:
        thread.join()
    return tally


# The gateway calls of one clerk's sequence, in the pages' order with the pages' arguments: the start page
# (channels, the archives of the two granted channels), the query form (description, its two select lists,
# query formats, archive properties), the hit list (the query) and the document page (info, segments,
# references, marked text, notes). Each is (member, arguments, the Next member that walks its result or "").
# The log-on and the user-directory reads of every page go to the database, not the gateway: they are part
# of what the portal adds.
def gateway_calls():
    from halqvantor import MISSING, Ref
    c, a, d = CHANNEL, ARCHIVE, DOCUMENT
    return [
        ("EASYGetChannelsInit", [Ref()], "EASYGetChannelsNext"),
        ("EASYGetArchivesInit", [c, Ref()], "EASYGetArchivesNext"),
        ("EASYGetArchivesInit", ["VERTRAG", Ref()], "EASYGetArchivesNext"),
        ("EASYGetArchiveDescriptionInit", [c, a, Ref(), Ref()], "EASYGetArchiveDescriptionNext"),
        ("EASYGetSegmentSelectListInit", [c, a, "5", Ref()], "EASYGetSegmentSelectListNext"),
        ("EASYGetSegmentSelectListInit", [c, a, "6", Ref()], "EASYGetSegmentSelectListNext"),
        ("EASYGetQueryFormatListInit", [c, a, Ref()], "EASYGetQueryFormatListNext"),
        ("EASYGetArchiveProperties", [c, a, Ref(), MISSING, MISSING, MISSING, Ref()], ""),
        ("EASYQueryArchiveInit", [c, a, QUERY, 500, 0, QUERY_FORMAT, MISSING, MISSING, MISSING, Ref(), Ref()],
         "EASYQueryArchiveNext"),
        ("EASYGetDocumentInfo", [c, a, d, "1"] + [Ref() for _ in range(9)], ""),
        ("EASYGetSegmentDescriptionInit", [c, a, d, "1", MISSING, Ref(), Ref()], "EASYGetSegmentDescriptionNext"),
        ("EASYGetSegmentERFInit", [c, a, d, "1", "4", Ref()], "EASYGetSegmentERFNext"),
        ("EASYGetSegmentTextInit", [c, a, d, "1", QUERY, "[#HIT#", "#/HIT#]", "\n", MISSING, Ref()],
         "EASYGetSegmentTextNext"),
        ("EASYGetNotesInit", [c, a, d, "1", Ref()], "EASYGetNotesNext"),
    ]


def new_object(site, session):
    import halqvantor
    v = halqvantor.clsVantor()
    v.strREMOTEHOST, v.lngREMOTEPORT, v.lngREQUESTTIMEOUT = "127.0.0.1", site.port, REQUEST_TIMEOUT
    v.strSessionID, v.strEASYUser, v.strEASYPwd = session, "easy", "easy"
    v.strDebugLogPath = ""
    v.Init()
    return v


def expected_answers(site):
    """Each gateway call's result (as text) and walk length, read once from Python."""
    v = new_object(site, "BENCH-REF")
    answers = []
    for member, args, walk in gateway_calls():
        result = getattr(v, member)(*args)
        items = []
        while walk and len(items) < 10_000:
            item = getattr(v, walk)()
            if item in ("", None):
                break
            items.append(item)
        # On the sample archive every one of these answers a positive count, a found flag or the archive's
        # properties; anything else means the gateway does not serve what the pages see.
        if not isinstance(result, int) or result <= 0:
            raise RuntimeError(f"the gateway answered {member} with {result!r} on the sample archive")
        answers.append((str(result), len(items)))
    return answers


def measure_gateway(site, clients, warmup, seconds):
    """Rounds per second of the clerk's gateway calls on `clients` threads, each with its own object.

    The rounds run in C++ through the dispatch table with the GIL released (halqvantor._core._dispatch_rounds):
    the client side then costs only what the component itself costs, so this is as close to the gateway's own
    rate as a client of the component gets. Calls from Python would add the interpreter's time per call and
    make the threads queue for the GIL, which the portal's figures would then be measured against."""
    import halqvantor
    answers = expected_answers(site)
    results = [None] * clients
    start = threading.Barrier(clients)

    def client(n):
        try:
            v = new_object(site, f"BENCH-{n}")  # ended with this function, on its own thread
            steps = [(member, args, walk, result, walked)
                     for (member, args, walk), (result, walked) in zip(gateway_calls(), answers)]
            start.wait(60)
            results[n] = halqvantor._core._dispatch_rounds(v, steps, warmup, warmup + seconds)
        except Exception as e:  # the others do not wait for this one
            start.abort()
            results[n] = (0, 0, f"{type(e).__name__}: {e}")

    threads = [threading.Thread(target=client, args=(n,), daemon=True) for n in range(clients)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    done = [r for r in results if r is not None]
    failures = [r[2] for r in done if r[2]]
    if len(done) < clients:
        failures.append(f"{clients - len(done)} threads ended without a result")
    return sum(r[0] for r in done), failures


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Server:
    """A portal server process on a free loopback port, in its own process group so that ending it ends its
    workers too; its output goes to `log`. A context manager: started on entry, ended on exit. `ready` is the
    number of worker processes that must report READY in the log before it counts as started."""

    def __init__(self, name, command, environ, log, ready=0):
        self.name, self.command, self.environ, self.log, self.ready = name, command, environ, log, ready
        self.port = free_port()
        self.process = None

    def __enter__(self):
        with open(self.log, "wb") as output:  # a file, not a pipe: a server that logs much never blocks on it
            self.process = subprocess.Popen(self.command(self.port), env=self.environ, cwd=PORTAL,
                                            stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                            start_new_session=True)
        try:
            self._wait_until_ready(30)
        except BaseException:
            self.__exit__()
            raise
        return self

    def _wait_until_ready(self, seconds):
        """Until every worker has loaded the portal and the log-on form comes back."""
        deadline = time.monotonic() + seconds
        while True:
            if self.process.poll() is not None:
                raise RuntimeError(f"{self.name} did not start: " + (" / ".join(self.last_lines()) or "no message"))
            connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=max(1, seconds / 3))
            try:
                if sum(READY in line for line in self.last_lines(None)) < self.ready:
                    raise OSError("workers still starting")
                connection.request("GET", "/login")
                response = connection.getresponse()
                response.read()
                if response.status == 200:
                    return
            except (OSError, http.client.HTTPException):
                pass
            finally:
                connection.close()
            if time.monotonic() > deadline:
                raise RuntimeError(f"{self.name} did not answer on port {self.port} within {seconds} s")
            time.sleep(0.1)

    def __exit__(self, *_):
        if self.process is None:
            return
        # The server first, so that it ends its workers itself; then whatever of its group is left.
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                pass
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()

    def last_lines(self, count=5):
        with open(self.log, encoding="utf-8", errors="replace") as output:
            lines = output.read().strip().splitlines()
        return lines[-count:] if count else lines


def waitress_command(port):
    return [sys.executable, "-m", "halqportal", "--host", "127.0.0.1", "--port", str(port), "--threads", "4"]


# Each gunicorn worker says in the log when it has loaded the portal: the measurement starts once all have.
READY = "portal_bench: worker ready"
GUNICORN_SETTINGS = f"""
def post_worker_init(worker):
    worker.log.warning("{READY} (%s)", worker.pid)
"""


# gthread workers: a page spends much of its time waiting on the gateway and the user database with the GIL
# released, and a worker's other threads serve pages meanwhile. A sync worker would sit idle through every
# such wait, serve one client at a time and close the connection after each answer (no keep-alive).
def gunicorn_command(port, threads, settings):
    return [sys.executable, "-m", "gunicorn", "--workers", "4", "--worker-class", "gthread",
            "--threads", str(threads), "--config", settings, "--bind", f"127.0.0.1:{port}", "--log-level", "warning",
            "wsgi:app"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0],
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=os.path.join(SOURCE, "build"), help="the build folder (default build/)")
    parser.add_argument("--clients", type=int, default=50, help="concurrent clients (default 50)")
    parser.add_argument("--seconds", type=float, default=10, help="measured seconds per server (default 10)")
    parser.add_argument("--warmup", type=float, default=1, help="seconds before the measurement (default 1)")
    parser.add_argument("--gunicorn-threads", type=int, default=4, help="threads per gunicorn worker (default 4)")
    parser.add_argument("--quick", action="store_true", help="3 s per server after 1 s of warm-up")
    args = parser.parse_args()
    if args.quick:
        args.seconds, args.warmup = 3, 1
    if args.clients < 1 or args.seconds <= 0 or args.warmup < 0 or args.gunicorn_threads < 1:
        parser.error("--clients, --seconds and --gunicorn-threads must be positive, --warmup not negative")
    build = os.path.abspath(args.build)
    sys.path[:0] = [os.path.join(build, "python"), PORTAL]
    from sample_site import SampleSite

    # SIGTERM ends the run as Ctrl-C does, so every process it started goes either way.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    failed = False
    try:
        with SampleSite(build) as site:
            environ = dict(os.environ, **site.environ)
            environ["PYTHONPATH"] = os.pathsep.join(filter(None, [os.path.join(build, "python"), PORTAL,
                                                                  os.environ.get("PYTHONPATH")]))
            # Every worker signs sessions with the same secret, as a portal behind a load balancer must.
            environ["VANTOR_PORTAL_SECRET"] = secrets.token_hex(32)
            environ.pop("VANTOR_LOG", None)

            print(f"{args.clients} concurrent clients, {args.seconds:g} s measured after {args.warmup:g} s of "
                  f"warm-up; a clerk's sequence: 6 requests to the portal, {len(gateway_calls())} gateway calls")
            print(f"{'':44} {'pages/s':>9} {'seq/s':>8}  pages/s / gateway seq/s  seq/s / gateway seq/s")
            base, gateway_failures = measure_gateway(site, args.clients, args.warmup, args.seconds)
            base_rate = base / args.seconds
            print(f"{'gateway alone (the calls, dispatch table)':44} {'':9} {base_rate:8.1f}")
            if gateway_failures:
                failed = True
                print(f"  FAILED: {len(gateway_failures)} of {args.clients} clients: {gateway_failures[0]}")
            else:
                print(f"  no errors: {base} sequences in the window, every answer as expected")

            settings = site.path("gunicorn_settings.py")
            with open(settings, "w", encoding="utf-8") as out:
                out.write(GUNICORN_SETTINGS)
            for name, command, ready in [
                ("waitress, 4 threads", waitress_command, 0),
                (f"gunicorn, 4 gthread workers x {args.gunicorn_threads} threads",
                 lambda port: gunicorn_command(port, args.gunicorn_threads, settings), 4),
            ]:
                with Server(name, command, environ, site.path(name.split(",")[0] + ".log"), ready) as server:
                    tally = measure_portal(server.port, args.clients, args.warmup, args.seconds)
                pages, sequences = tally.pages / args.seconds, tally.sequences / args.seconds
                ratios = f"{pages / base_rate:24.2f} {sequences / base_rate:22.3f}" if base_rate else "  -"
                print(f"{name:44} {pages:9.1f} {sequences:8.1f} {ratios}")
                lost = tally.sent - tally.answered
                if tally.failed or lost:
                    failed = True
                    print(f"  FAILED: {tally.failed} of {tally.sent} requests failed, {lost} of them unanswered")
                    for what in tally.failures:
                        print(f"    {what}")
                    said = [line for line in server.last_lines(None) if READY not in line][-5:]
                    print("    the server's last lines: " + (" / ".join(said) or "(none)"))
                else:
                    print(f"  no errors, none lost: {tally.sent} requests sent, {tally.good} answered as expected")
    except KeyboardInterrupt:
        print("\nportal_bench: interrupted", file=sys.stderr)
        failed = True
    except (RuntimeError, subprocess.CalledProcessError, OSError) as e:
        print(f"portal_bench: {e}", file=sys.stderr)
        failed = True
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
