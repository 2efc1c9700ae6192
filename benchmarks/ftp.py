"""Measures the FTP library, and what a user with an account waits for, and prints a table.

Usage: ftp.py FTP-CLIENT ACCOUNTS-BENCHMARK FOLDER [small]. The first two are made of ftp_client.cpp and accounts_benchmark.cpp.
"small" measures the small transfers alone.
FOLDER is to hold 5 GB, better in memory than on a disk. curl, lftp and ncftp are the rivals, on the same servers in the same run, in turns whose
order changes. The exit status is 0 when every limit is met.
"""

import contextlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

from table import Series, Table

HERE = os.path.dirname(os.path.realpath(__file__))
SERVER = os.path.join(HERE, "more-ftp-servers")
DELAYED_NETWORK = os.path.join(HERE, "delayed-network")
KINDS = ("pyftpdlib", "vsftpd", "proftpd", "pureftpd")
# Servers that wait for the acknowledgement of one reply before they send the next.
WAITING_KINDS = ("inetutils", "twisted")
LARGE_KINDS = ("vsftpd", "pureftpd")  # the two that are fast enough for the client to matter
SMALL_BYTES = 10_000
LARGE_BYTES = 1 << 30
MEDIUM_BYTES = 10 << 20
ROUNDS = 12  # of the large transfers, after one that does not count
MEMORY_ROUNDS = 3
SMALL_TRANSFERS = 1000
RIVAL_SMALL_TRANSFERS = 100  # curl takes half a second for each upload to Pure-FTPd
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


def cores():
    """One for the servers and one for the clients, so that no run depends on where the system puts them."""
    available = sorted(os.sched_getaffinity(0))
    return available[0], available[-1]


@contextlib.contextmanager
def server(kind, folder, *options):
    """Yields the port of a server over the folder."""
    process = subprocess.Popen([SERVER, kind, folder, *options], stdout=subprocess.PIPE, stdin=subprocess.PIPE, text=True,
                               preexec_fn=lambda: os.sched_setaffinity(0, {cores()[0]}))
    try:
        line = process.stdout.readline().split()
        if line[:1] != ["port"]:
            sys.exit(f"{kind} does not start: {' '.join(line)}")
        yield line[1]
    finally:
        process.kill()
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
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                   preexec_fn=lambda: os.sched_setaffinity(0, {cores()[1]}))
    return time.monotonic() - start


def peak_kib(command):
    """What the command held in memory at most. By a small program: of a child of this one, the system would count this one's."""
    run = subprocess.run(["/usr/bin/time", "-f", "%M", *command], check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                         stderr=subprocess.PIPE, text=True)
    return int(run.stderr.split()[-1])


def bytes_received():
    """Over the loopback interface, since it is up."""
    with open("/proc/net/dev", encoding="ascii") as file:
        return int(re.search(r"lo:\s*(\d+)", file.read())[1])


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
            "lftp": [*lftp, f"set ftp:ssl-allow no; set xfer:clobber yes; get large -o {target}; quit"],
            "ncftp": ["ncftpget", *ncftp, inbox, "large"],
        },
    }


def measure_large(program, folder, kind):
    """Seconds for 1 GiB by direction and client."""
    store, inbox = new_folder(folder, f"large-{kind}"), new_folder(folder, f"inbox-{kind}")
    source = os.path.join(folder, "large")
    write_file(source, LARGE_BYTES)
    # What a client takes to put a file into memory is the system's time, and the greatest part of all.
    os.symlink("/dev/null", os.path.join(inbox, "large"))
    times = {}
    with server(kind, store, "--preload", os.path.join(os.path.dirname(program), "libkeep_memory.so")) as port:
        for number in range(ROUNDS + 1):
            for direction, commands in clients(program, port, source, inbox).items():
                names = list(commands)
                for name in names[number % len(names):] + names[:number % len(names)]:
                    before = bytes_received()
                    taken = seconds(commands[name])
                    moved = bytes_received() - before
                    if moved < LARGE_BYTES:
                        sys.exit(f"{name} has moved {moved} bytes")
                    if number > 0:
                        times.setdefault(direction, {}).setdefault(name, []).append(taken)
    shutil.rmtree(store)
    return times


def measure_memory(program, folder):
    """KiB by size, direction and client."""
    store, inbox = new_folder(folder, "memory-store"), new_folder(folder, "memory-inbox")
    os.symlink("/dev/null", os.path.join(inbox, "large"))
    source = os.path.join(folder, "large")
    peaks = {}
    with server(LARGE_KINDS[0], store) as port:
        for size in (MEDIUM_BYTES, LARGE_BYTES):
            write_file(source, size)
            for _ in range(MEMORY_ROUNDS):
                for direction, commands in clients(program, port, source, inbox).items():
                    for name, command in commands.items():
                        peaks.setdefault((size, direction), {}).setdefault(name, []).append(peak_kib(command))
    os.unlink(source)
    return peaks


def measure_small(program, folder, kind):
    """Seconds of each transfer of 10 kB over a warm connection, by direction and client: this library and curl."""
    store, source = new_folder(folder, f"small-{kind}"), os.path.join(folder, "small")
    write_file(source, SMALL_BYTES)
    times = {"upload": {}, "read": {}}
    with server(kind, store) as port:
        output = subprocess.run([program, "127.0.0.1", port, "", "small", str(SMALL_TRANSFERS)], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        for line in output.splitlines():
            direction, taken = line.split()
            times[direction].setdefault("this library", []).append(float(taken))
        transfer = f'url = "ftp://u:p@127.0.0.1:{port}/small"\n'
        for direction, what in {"upload": f'upload-file = "{source}"\n', "read": 'output = "/dev/null"\n'}.items():
            config = 'write-out = "%{time_total}\\n"\n' + (transfer + what) * (RIVAL_SMALL_TRANSFERS + 1)
            output = subprocess.run(["curl", "-sS", "-K", "-"], check=True, input=config, stdout=subprocess.PIPE, text=True).stdout
            times[direction]["curl"] = [float(taken) for taken in output.split()[1:]]  # the first is not warm
    return times


def trips(store, kind, client, *arguments):
    """What the shell's command prints, with $0 and so on for `arguments`, and the round trips that it has taken."""
    start = "start=$(date +%s%N); "
    end = "; echo all $(($(date +%s%N) - start))e-9"
    run = subprocess.run([DELAYED_NETWORK, "--rtt-ms", str(ROUND_TRIP_MS), "--server",
                          f"{SERVER} {kind} {store} --address $SERVER_ADDRESS", "--", "sh", "-ec",
                          'port=$(sed -n "s/^port //p" "$SERVER_OUTPUT"); host=$SERVER_ADDRESS; ' + start + client + end, *arguments],
                         check=True, stdout=subprocess.PIPE, text=True)
    for line in run.stdout.splitlines():
        name, taken = line.split()
        yield name, float(taken) * 1000 / ROUND_TRIP_MS


def measure_trips(program, folder, kind):
    """Round trips by task of this library's, and those of a save by client."""
    store, source = new_folder(folder, f"trips-{kind}"), os.path.join(folder, "small")
    write_file(source, SMALL_BYTES)
    shutil.copy(source, store)
    os.chmod(os.path.join(store, "small"), 0o666)
    own, saves = {}, {}
    rivals = {
        "curl": 'curl -sS -o /dev/null "ftp://u:p@$host:$port/small" --next -sS -T "$0" "ftp://u:p@$host:$port/small"',
        "lftp": 'lftp -u u,p -p "$port" "$host" -e "set ftp:ssl-allow no; set xfer:clobber yes; get small -o /dev/null; put $0 -o small; quit"',
        "ncftp": 'ncftpget -V -c -u u -p p -P "$port" "$host" small >/dev/null; ncftpput -V -u u -p p -P "$port" "$host" / "$0"',
    }
    for _ in range(TRIPS_ROUNDS):
        for task in ("save", "sign-up"):
            for name, taken in trips(store, kind, f'"$0" "$host" "$port" "" {task}', program):
                if name != "all":
                    own.setdefault(name, []).append(taken)
        for name, command in rivals.items():
            saves.setdefault(name, []).extend(taken for _, taken in trips(store, kind, command, source))
    return own, saves


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


def small_rows(table, program, folder):
    for kind in (*KINDS, *WAITING_KINDS):
        for direction, of_client in measure_small(program, folder, kind).items():
            ours, curl = (Series([s * 1000 for s in of_client[name]], "ms") for name in ("this library", "curl"))
            slow, rival = ours.percentile(0.99), curl.percentile(0.99)
            table.row(f"10 kB, {direction}, {kind}: 99th percentile", f"{Series.number(slow)} ms",
                      f"curl: {Series.number(rival)} ms", f"{slow / rival:.2f}", f"≤ {SLOW_LIMIT_MS} ms", slow <= SLOW_LIMIT_MS)
            table.ratio_row(f"10 kB, {direction}, {kind}", ours, curl, "curl", None)


def main():
    program, accounts, parent = os.path.realpath(sys.argv[1]), os.path.realpath(sys.argv[2]), sys.argv[3]
    table = Table()
    folder = tempfile.mkdtemp(prefix="quillery-ftp-benchmark.", dir=parent)
    os.chmod(folder, 0o755)
    try:
        if sys.argv[4:] == ["small"]:
            small_rows(table, program, folder)
            return table.print_all()
        for kind in LARGE_KINDS:
            for direction, of_client in measure_large(program, folder, kind).items():
                table.race_rows(f"1 GiB, {direction}, {kind}",
                                {name: [s * 1000 for s in values] for name, values in of_client.items()}, "ms")
        peaks = measure_memory(program, folder)
        for direction in ("upload", "download"):
            medium, large = ({name: Series([k / 1024 for k in values], "MiB") for name, values in peaks[size, direction].items()}
                             for size in (MEDIUM_BYTES, LARGE_BYTES))
            table.ratio_row(f"Memory, {direction} of 1 GiB", large["this library"], medium["this library"], "of 10 MiB", MEMORY_LIMIT)
            table.rival_rows(f"Memory, {direction} of 1 GiB", large, None)
        small_rows(table, program, folder)
        for kind in KINDS:
            own, saves = measure_trips(program, folder, kind)
            for name, values in own.items():
                limit = TRIPS_LIMITS[name] if kind in TRIPS_KINDS else None
                series = Series(values, "round trips")
                table.row(f"{TRIPS_NAMES[name]}, {kind}", series, "", "", f"≤ {limit}" if limit else "–",
                          series.median <= limit if limit else None)
            table.rival_rows(f"{TRIPS_NAMES['fresh-save']}, {kind}",
                             {"this library": Series(own["fresh-save"], "round trips"),
                              **{name: Series(values, "round trips") for name, values in saves.items()}}, None)
        steps, held = measure_accounts(accounts, folder)
        for name, values in steps.items():
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
