"""Measures the FTP library, and what a user with an account waits for, and prints a table.

Usage: ftp.py FTP-CLIENT ACCOUNTS-BENCHMARK FOLDER. The first two are made of ftp_client.cpp and accounts_benchmark.cpp.
FOLDER is to hold 5 GB, better in memory than on a disk. curl, lftp and ncftp are the rivals, on the same servers in the same run, in turns whose order changes. The
exit status is 0 when every limit is met.
"""

import contextlib
import os
import shutil
import subprocess
import sys
import tempfile
import time

from table import Series, Table

HERE = os.path.dirname(os.path.realpath(__file__))
SERVER = os.path.join(HERE, "../tests/support/ftp-servers/ftp-server")
DELAYED_NETWORK = os.path.join(HERE, "delayed-network")
KINDS = ("pyftpdlib", "vsftpd", "proftpd", "pureftpd")
LARGE_KINDS = ("vsftpd", "pureftpd")  # the two that are fast enough for the client to matter
SMALL_BYTES = 10_000
LARGE_BYTES = 1 << 30
MEDIUM_BYTES = 10 << 20
ROUNDS = 15  # of the large transfers, after one that does not count
MEMORY_ROUNDS = 3
SMALL_TRANSFERS = 1000
TRIPS_ROUNDS = 3
ROUND_TRIP_MS = 100
TRIPS_LIMITS = {"warm-save": 9, "fresh-save": 14, "warm-sign-up": 21}
TRIPS_NAMES = {"warm-save": "A save (read and upload), warm", "fresh-save": "A save, fresh",
               "warm-sign-up": "A sign-up (read and four uploads), warm"}
TRIPS_KINDS = ("pyftpdlib", "pureftpd")  # those that the limits are for; the others are shown
SLOW_LIMIT_MS = 10
# 4 round trips for each read and upload, and the probe of a sign-in is an upload.
STEP_LIMITS = {"sign-up": 5 * 4, "sign-in": 3 * 4, "open-list": 2 * 4, "share": 4 * 4}
STEP_NAMES = {"sign-up": "Signing up (a read, four uploads)", "sign-in": "Signing in (two reads, a probe)",
              "open-list": "Opening the list (two reads)", "share": "Sending a text (three reads, an upload)"}
STEP_KIND = "pyftpdlib"
ACCOUNT = {"FTP_SERVER_USER": "qz7m_50281946", "FTP_SERVER_PASSWORD": "w5rt9x2h"}
HOLD_ROUNDS = 5
HOLD_LIMIT_MS = 100
MEMORY_LIMIT = 1.1


@contextlib.contextmanager
def server(kind, folder):
    """Yields the port of a server over the folder."""
    process = subprocess.Popen([SERVER, kind, folder], stdout=subprocess.PIPE, stdin=subprocess.PIPE, text=True)
    try:
        line = process.stdout.readline().split()
        if line[:1] != ["port"]:
            sys.exit(f"{kind} does not start: {' '.join(line)}")
        yield line[1]
    finally:
        process.terminate()
        process.wait()


def write_file(path, size):
    block = os.urandom(1 << 19).hex().encode()  # text, which is what a read wants
    with open(path, "wb") as file:
        while size > 0:
            file.write(block[:size])
            size -= len(block)
    os.chmod(path, 0o666)


def new_folder(parent, name):
    path = os.path.join(parent, name)
    os.mkdir(path)
    os.chmod(path, 0o777)
    return path


def seconds(command):
    start = time.monotonic()
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.monotonic() - start


def clients(program, port, source, inbox):
    """The commands that store `source` on the server, and those that fetch "large" into `inbox`, by client."""
    address, target = f"ftp://u:p@127.0.0.1:{port}", os.path.join(inbox, "large")
    lftp = ["lftp", "-u", "u,p", "-p", port, "127.0.0.1", "-e"]
    ncftp = ["-V", "-u", "u", "-p", "p", "-P", port, "127.0.0.1"]
    return {
        "upload": {
            "this library": [program, "127.0.0.1", port, "", "upload", source],
            "curl": ["curl", "-sS", "-T", source, f"{address}/large"],
            "lftp": [*lftp, f"set ftp:ssl-allow no; put {source} -o large; quit"],
            "ncftp": ["ncftpput", *ncftp, "/", source],
        },
        "download": {
            "this library": [program, "127.0.0.1", port, "", "download", "large", inbox],
            "curl": ["curl", "-sS", "-o", target, f"{address}/large"],
            "lftp": [*lftp, f"set ftp:ssl-allow no; get large -o {target}; quit"],
            "ncftp": ["ncftpget", *ncftp, inbox, "large"],
        },
    }


def measure_large(program, folder, kind):
    """Seconds for 1 GiB by direction and client."""
    store, inbox = new_folder(folder, f"large-{kind}"), new_folder(folder, f"inbox-{kind}")
    source = os.path.join(folder, "large")
    write_file(source, LARGE_BYTES)
    times = {}
    with server(kind, store) as port:
        for number in range(ROUNDS + 1):
            for direction, commands in clients(program, port, source, inbox).items():
                names = list(commands)
                for name in names[number % len(names):] + names[:number % len(names)]:
                    taken = seconds(commands[name])
                    stored = os.path.getsize(os.path.join(store if direction == "upload" else inbox, "large"))
                    if stored != LARGE_BYTES:
                        sys.exit(f"{name} has moved {stored} bytes")
                    if direction == "download":
                        os.unlink(os.path.join(inbox, "large"))
                    if number > 0:
                        times.setdefault(direction, {}).setdefault(name, []).append(taken)
    shutil.rmtree(store)
    return times


def peak_kib(command):
    """What the command held in memory at most."""
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command} has failed")
    return usage.ru_maxrss


def measure_memory(program, folder):
    """KiB by direction and size."""
    store, inbox = new_folder(folder, "memory-store"), new_folder(folder, "memory-inbox")
    peaks = {}
    with server("vsftpd", store) as port:
        for size in (MEDIUM_BYTES, LARGE_BYTES):
            source = os.path.join(folder, "large")
            write_file(source, size)
            for _ in range(MEMORY_ROUNDS):
                for direction, commands in clients(program, port, source, inbox).items():
                    peaks.setdefault((direction, size), []).append(peak_kib(commands["this library"]))
    return peaks


def measure_small(program, folder, kind):
    """Seconds of each transfer of 10 kB over a warm connection, by direction."""
    times = {}
    with server(kind, new_folder(folder, f"small-{kind}")) as port:
        output = subprocess.run([program, "127.0.0.1", port, "", "small", str(SMALL_TRANSFERS)], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
    for line in output.splitlines():
        direction, taken = line.split()
        times.setdefault(direction, []).append(float(taken))
    return times


def measure_trips(program, folder, kind):
    """Round trips by task."""
    store = new_folder(folder, f"trips-{kind}")
    write_file(os.path.join(store, "small"), SMALL_BYTES)
    trips = {}
    for task in ("save", "sign-up"):
        client = f'"$0" "$SERVER_ADDRESS" "$(sed -n "s/^port //p" "$SERVER_OUTPUT")" "" {task}'
        for _ in range(TRIPS_ROUNDS):
            run = subprocess.run([DELAYED_NETWORK, "--rtt-ms", str(ROUND_TRIP_MS), "--server",
                                  f"{SERVER} {kind} {store} --address $SERVER_ADDRESS", "--", "sh", "-c", client, program],
                                 check=True, stdout=subprocess.PIPE, text=True)
            for line in run.stdout.splitlines():
                name, taken = line.split()
                trips.setdefault(name, []).append(float(taken) * 1000 / ROUND_TRIP_MS)
    return trips


def measure_accounts(program, folder):
    """Round trips by step, and the milliseconds for which the interface was held while a list of 20 MB was read."""
    desktop = os.path.join(HERE, "../tests/support/private-desktop")
    trips, held = {}, []
    client = f'exec {desktop} "$0" "$SERVER_ADDRESS" "$(sed -n "s/^port //p" "$SERVER_OUTPUT")" $1'
    for number in range(TRIPS_ROUNDS + HOLD_ROUNDS):
        task, rtt = ("steps", ROUND_TRIP_MS) if number < TRIPS_ROUNDS else ("hold", 0)
        store = new_folder(folder, f"accounts-{number}")
        new_folder(store, "htdocs")
        run = subprocess.run([DELAYED_NETWORK, "--rtt-ms", str(rtt), "--server",
                              f"{SERVER} {STEP_KIND} {store} --address $SERVER_ADDRESS", "--", "sh", "-c", client, program, task],
                             check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                             env={**os.environ, **ACCOUNT})
        for line in run.stdout.splitlines():
            name, taken = line.split()
            if task == "steps":
                trips.setdefault(name, []).append(float(taken) * 1000 / ROUND_TRIP_MS)
            elif name == "held":
                held.append(float(taken) * 1000)
        shutil.rmtree(store)
    return trips, held


def main():
    program, accounts, parent = os.path.realpath(sys.argv[1]), os.path.realpath(sys.argv[2]), sys.argv[3]
    table = Table()
    folder = tempfile.mkdtemp(prefix="quillery-ftp-benchmark.", dir=parent)
    os.chmod(folder, 0o755)
    try:
        for kind in LARGE_KINDS:
            for direction, times in measure_large(program, folder, kind).items():
                series = {name: Series([s * 1000 for s in values], "ms") for name, values in times.items()}
                ours = series.pop("this library")
                fastest = min(series, key=lambda name: series[name].median)
                for name, rival in series.items():
                    table.ratio_row(f"1 GiB, {direction}, {kind}", ours, rival, name, 1 if name == fastest else None)
        peaks = measure_memory(program, folder)
        for direction in ("upload", "download"):
            medium, large = (Series([k / 1024 for k in peaks[direction, size]], "MiB") for size in (MEDIUM_BYTES, LARGE_BYTES))
            table.ratio_row(f"Memory, {direction} of 1 GiB", large, medium, "of 10 MiB", MEMORY_LIMIT)
        os.unlink(os.path.join(folder, "large"))
        for kind in KINDS:
            for direction, times in measure_small(program, folder, kind).items():
                series = Series([s * 1000 for s in times], "ms")
                slow = series.percentile(0.99)
                table.row(f"10 kB, {direction}, {kind}: 99th percentile", f"{Series.number(slow)} ms",
                          f"median {Series.number(series.median)} ms", "", f"≤ {SLOW_LIMIT_MS} ms", slow <= SLOW_LIMIT_MS)
        for kind in KINDS:
            for name, values in measure_trips(program, folder, kind).items():
                limit = TRIPS_LIMITS[name] if kind in TRIPS_KINDS else None
                series = Series(values, "round trips")
                table.row(f"{TRIPS_NAMES[name]}, {kind}", series, "", "", f"≤ {limit}" if limit else "–",
                          series.median <= limit if limit else None)
        trips, held = measure_accounts(accounts, folder)
        for name, values in trips.items():
            series = Series(values, "round trips")
            table.row(STEP_NAMES[name], series, "", "", f"≤ {STEP_LIMITS[name]}", series.median <= STEP_LIMITS[name])
        series = Series(held, "ms")
        table.row("Interface held while a list of 20 MB is opened, the fill included", series, "", "", f"≤ {HOLD_LIMIT_MS} ms",
                  series.values[-1] <= HOLD_LIMIT_MS)
    finally:
        shutil.rmtree(folder)
    return table.print_all()


if __name__ == "__main__":
    sys.exit(main())
