#!/usr/bin/env python3
"""A member called from Python against the same call through the C++ dispatch table, in one run.

Each figure is the Python call's time divided by the C++ call's (goal: 1.3 or less). Run by ./dev.sh bench,
or by hand: PYTHONPATH=build/python python3 bench/python_bench.py build/tools/gateway/vantor-gateway
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

import halqvantor
from halqvantor import Ref

HERE = os.path.dirname(os.path.abspath(__file__))


def best_of(rounds, fn):
    return min(fn() for _ in range(rounds))


def timed(fn, count):
    start = time.perf_counter()
    for _ in range(count):
        fn()
    return time.perf_counter() - start


def start_gateway(binary, folder):
    data, blob = os.path.join(folder, "archive"), os.path.join(folder, "blob")
    shutil.copytree(os.path.join(HERE, "..", "tools", "gateway", "sample"), data)
    os.mkdir(blob)
    process = subprocess.Popen([binary, "--data", data, "--blob", blob, "--port", "0"], stdout=subprocess.PIPE,
                               text=True)
    line = process.stdout.readline()
    return process, int(line.rsplit(":", 1)[1])


def main():
    binary = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "..", "build", "tools", "gateway",
                                                                "vantor-gateway")
    v = halqvantor.clsVantor()

    # Encode: the cheapest member, so the call's own cost shows.
    n = 200_000
    py = best_of(5, lambda: timed(lambda: v.Encode("Geheim1"), n))
    cpp = best_of(5, lambda: halqvantor._core._dispatch_loop(v, "Encode", ["Geheim1"], n))
    print(f"Encode from Python / through the dispatch table:                  {py / cpp:5.2f}"
          f"   ({py / n * 1e9:.0f} ns against {cpp / n * 1e9:.0f} ns a call)")

    with tempfile.TemporaryDirectory() as folder:
        process, port = start_gateway(binary, folder)
        try:
            v.strREMOTEHOST, v.lngREMOTEPORT, v.lngREQUESTTIMEOUT = "127.0.0.1", port, 10
            v.strSessionID, v.strEASYUser, v.strEASYPwd = "BENCH", "easy", "easy"
            v.Init()

            def walk():
                count = v.EASYGetChannelsInit(Ref())
                for _ in range(count):
                    v.EASYGetChannelsNext(Ref())
                v.EASYGetChannelsNext()
            n = 500
            py = best_of(5, lambda: timed(walk, n))
            cpp = best_of(5, lambda: halqvantor._core._dispatch_loop(v, "EASYGetChannelsInit", [Ref()], n,
                                                                     "EASYGetChannelsNext"))
            print(f"EASYGetChannelsInit + walk from Python / through the dispatch table: {py / cpp:5.2f}"
                  f"   ({py / n * 1e6:.0f} us against {cpp / n * 1e6:.0f} us a round)")
        finally:
            process.terminate()
            process.wait()


if __name__ == "__main__":
    main()
