"""The portal's sample set-up: the reference gateway over a temporary copy of the sample archive and a SQLite
user directory with the demo's users. `./dev.sh portal` serves the portal on it; the tests start the same.

    python3 portal/sample_site.py [--build DIR] [--host H] [--port P] [--threads N]
"""

import argparse
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)

# The demo's portal users: name, password, what they may do.
SAMPLE_LOGONS = [
    ("anna", "Portal2002", "invoices (search, notes, upload, new documents) and contracts"),
    ("bert", "bert", "contracts only, read and search"),
]


class SampleSite:
    """Context manager: a temporary folder with the archive copy, blob folder and user database, and the
    gateway running on a free loopback port. `environ` holds the portal's VANTOR_* settings for it."""

    def __init__(self, build_dir):
        self.build_dir = os.path.abspath(build_dir)
        self.gateway_program = os.path.join(self.build_dir, "tools", "gateway", "vantor-gateway")
        self.vantor_program = os.path.join(self.build_dir, "tools", "vantor", "vantor")
        self.folder = None
        self.gateway = None
        self.port = 0
        self.environ = {}

    def __enter__(self):
        for program in (self.gateway_program, self.vantor_program):
            if not os.access(program, os.X_OK):
                raise RuntimeError(f"{program} is missing: build first (./dev.sh build)")
        self.folder = tempfile.mkdtemp(prefix="vantor-portal-")
        try:
            self._start()
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def _start(self):
        data, blob = self.path("data"), self.path("blob")
        database = self.path("users.db")
        shutil.copytree(os.path.join(SOURCE, "tools", "gateway", "sample"), data)
        os.mkdir(blob)
        subprocess.run([self.vantor_program, "initdb", "--demo-users", database], check=True,
                       stdout=subprocess.DEVNULL)
        self.gateway = subprocess.Popen(
            [self.gateway_program, "--data", data, "--blob", blob, "--listen", "127.0.0.1", "--port", "0"],
            stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        line = _first_line(self.gateway.stdout, 10)
        self.gateway.stdout.close()
        if not line.startswith("listening on "):
            raise RuntimeError(f"the gateway did not start: {line or 'no answer within 10 s'}")
        self.port = int(line.rsplit(":", 1)[1])
        self.environ = {
            "VANTOR_HOST": "127.0.0.1",
            "VANTOR_PORT": str(self.port),
            "VANTOR_TIMEOUT": "30",
            "VANTOR_BLOB_LOCAL": blob,
            "VANTOR_BLOB_REMOTE": blob,
            "VANTOR_DB": f"Provider=SQLite;Data Source={database}",
            "VANTOR_PORTAL_DATA": self.path("portal"),
        }

    def path(self, name):
        return os.path.join(self.folder, name)

    def __exit__(self, *_):
        if self.gateway is not None and self.gateway.poll() is None:
            self.gateway.terminate()
            try:
                self.gateway.wait(5)
            except subprocess.TimeoutExpired:
                self.gateway.kill()
                self.gateway.wait()
        if self.folder:
            shutil.rmtree(self.folder, ignore_errors=True)


def _first_line(stream, seconds):
    deadline = time.monotonic() + seconds
    data = b""
    while b"\n" not in data:
        left = deadline - time.monotonic()
        if left <= 0 or not select.select([stream], [], [], left)[0]:
            break
        chunk = os.read(stream.fileno(), 256)
        if not chunk:
            break
        data += chunk
    return data.split(b"\n", 1)[0].decode(errors="replace").strip()


def main():
    parser = argparse.ArgumentParser(description="serve the portal on the sample archive")
    parser.add_argument("--build", default=os.path.join(SOURCE, "build"), help="the build folder (default build/)")
    parser.add_argument("--host", default="127.0.0.1", help="address to listen on (default 127.0.0.1)")
    parser.add_argument("--port", type=int, default=8080, help="port (default 8080)")
    parser.add_argument("--threads", type=int, default=4, help="waitress threads (default 4)")
    args = parser.parse_args()

    sys.path[:0] = [os.path.join(os.path.abspath(args.build), "python"), HERE]
    from waitress import serve

    from halqportal import create_app

    # SIGTERM ends the portal as Ctrl-C does, so the gateway stops and the folder goes either way.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        with SampleSite(args.build) as site:
            os.environ.update(site.environ)
            app = create_app()
            print(f"portal        http://{args.host}:{args.port}/", flush=True)
            print(f"gateway       127.0.0.1:{site.port} over a copy of the sample archive in {site.folder}")
            print("log-ons       " + "\n              ".join(f"{n} / {p}: {what}" for n, p, what in SAMPLE_LOGONS))
            print("Ctrl-C stops the portal and the gateway and removes the temporary folder.", flush=True)
            serve(app, host=args.host, port=args.port, threads=args.threads, ident="portal",
                  clear_untrusted_proxy_headers=True)
    except KeyboardInterrupt:
        pass  # waitress may also take it and return
    except (RuntimeError, subprocess.CalledProcessError, OSError) as e:
        sys.exit(f"portal: {e}")
    print("\nportal stopped; gateway stopped, temporary folder removed")


if __name__ == "__main__":
    main()
