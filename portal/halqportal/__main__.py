"""Serves the portal with waitress: python3 -m halqportal [--host H] [--port P] [--threads N]."""

import argparse

from waitress import serve

from . import create_app


def main():
    parser = argparse.ArgumentParser(prog="python3 -m halqportal", description="serve the document portal")
    parser.add_argument("--host", default="127.0.0.1", help="address to listen on (default 127.0.0.1)")
    parser.add_argument("--port", type=int, default=8080, help="port (default 8080)")
    parser.add_argument("--threads", type=int, default=4, help="waitress worker threads (default 4)")
    args = parser.parse_args()
    serve(create_app(), host=args.host, port=args.port, threads=args.threads, ident="portal",
          clear_untrusted_proxy_headers=True)


if __name__ == "__main__":
    main()
