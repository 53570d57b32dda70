"""The demonstration line of tools/station: a week of attempts, then one station that is served."""

import argparse
import binascii
import datetime
import hashlib
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Boards that come by: a scenario of boards/ and how many of two hundred are like it. The person who
# answers looks at the panel and listens; in the noise the buzzer of a healthy board is not heard.
NOISE = "noise"
MIX = [("healthy", 178), ("alarm-input-dead", 4), ("network-slow", 3), ("network-fibre-down", 3),
       ("disk-missing", 2), ("usb-dead-port", 2), ("rs485-silent", 3), ("alarm-input-stuck", 2),
       ("rtc-stopped", 1), (NOISE, 2)]
STATIONS = ["3L02", "3L05", "3L07"]
REFERENCES = [("45270-0000-0001", "healthy", "PASS"), ("45270-0000-0002", "rs485-silent", "FAIL")]
SUPERVISOR, REPAIRER = "S7-0123456789abcdef", "R-0003"
OPERATORS = {"3L02": "W1032", "3L05": "W1017", "3L07": "W1044"}
PEOPLE = f"""[[operator]]
name = "W1032"
badge = "B-1032"
[[supervisor]]
name = "S7"
badge = "{SUPERVISOR}"
[[repairer]]
name = "R3"
badge = "{REPAIRER}"
"""
HEALTHY = os.path.join(SOURCE, "boards", "healthy.toml")


def milliseconds(instant):
    return instant.isoformat(timespec="milliseconds")


class Line:
    def __init__(self, options):
        self.options = options
        self.build = os.path.abspath(options.build)
        self.folder = tempfile.mkdtemp(prefix="q7-station-")
        self.random = random.Random(2026)
        self.process = None
        self.stopping = threading.Event()
        os.mkdir(self.path("plans"))
        os.mkdir(self.path("dictionaries"))
        shutil.copy(os.path.join(SOURCE, "plans", "healthy.toml"), self.path("plans"))
        plan = self.path("plans", "healthy.toml")
        with open(plan, encoding="utf-8") as file:
            text = file.read().replace("scan_out = false", "scan_out = true")
        for serial, _, verdict in REFERENCES:
            text += f'\n[[reference]]\nserial = "{serial}"\nverdict = "{verdict}"\n'
        with open(plan, "w", encoding="utf-8") as file:
            file.write(text)
        with open(self.path("people.toml"), "w", encoding="utf-8") as file:
            file.write(PEOPLE)
        self.pace("")
        with open(self.path("simulator"), "w", encoding="utf-8") as file:
            file.write(f"""#!/bin/sh
exec {self.build}/q7-sim --gbk $(cat {self.path("pace")}) --fifo {self.path("fifo")} \\
    --board "$(cat {self.path("board")})" "$@"
""")
        os.chmod(self.path("simulator"), 0o700)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def board(self, kind):
        self.kind = kind
        name = "healthy" if kind == NOISE else kind
        with open(self.path("next"), "w", encoding="utf-8") as file:
            file.write(os.path.join(SOURCE, "boards", name + ".toml"))
        os.replace(self.path("next"), self.path("board"))

    def pace(self, options):
        with open(self.path("pace"), "w", encoding="utf-8") as file:
            file.write(options)

    def words(self):
        return ["--", f"{self.build}/q7-agent", "run", "--fifo", self.path("fifo"),
                "--spool", self.path("spool"), "--", self.path("simulator")]

    def station(self, command, *options, **how):
        """Runs a command of q7-station to its end."""
        return subprocess.run([f"{self.build}/q7-station", command, *options], text=True, **how)

    def simulation(self):
        return ["--plan", self.path("plans", "healthy.toml"), "--board", HEALTHY,
                "--simulator", f"{self.build}/q7-sim"]

    # ---- history ----

    def dictionary(self):
        made = self.station("dictionary", *self.simulation(), "--output",
                            self.path("dictionaries", "healthy.dictionary"), capture_output=True)
        if made.returncode != 0:
            shutil.rmtree(self.path("dictionaries"))
            os.mkdir(self.path("dictionaries"))
            print(f"Without likely causes: {made.stderr.strip().splitlines()[-1]}", file=sys.stderr)

    def samples(self):
        """By kind of board, the journal and judgement of an attempt that was run at full speed."""
        found = {}
        if not self.serve("samples", 0, ["--operator", "W1032"]):
            raise RuntimeError("the station does not start")
        self.prove("samples")
        # The healthy one last: it waits to be scanned out.
        for number, (name, _) in enumerate(reversed(MIX)):
            if name == "healthy":  # from which the station learns how long the steps take
                self.pace(f"--pace {self.options.pace}")
            state = self.test(name, f"45270-2600-{number:04d}")
            identity = state["attempt"]["id"]
            path = self.path("samples", identity.split("-")[1], identity)
            with open(path + ".journal", encoding="utf-8") as journal:
                with open(path + ".judgement.json", encoding="utf-8") as judgement:
                    found[name] = (journal.read().splitlines(), json.load(judgement))
        self.pace("")
        self.process.terminate()
        self.process.wait(20)
        return found

    def test(self, board, serial):
        """One board from its scan to its verdict; the state then."""
        self.board(board)
        self.ask("/api/scan", {"text": serial})
        end = time.monotonic() + 60
        while True:
            state = self.ask("/api/state")
            if state["phase"] == "verdict" and state["attempt"]["serial"] == serial:
                return state
            self.answer(state)
            if time.monotonic() > end:
                raise RuntimeError(f"the board {board} does not end")
            time.sleep(0.02)

    def prove(self, journals):
        """The proof of the shift: simulated faults, then the plan's reference boards."""
        self.station("prove", *self.simulation(), "--station", "3L02", "--operator", "W1032",
                     "--journals", self.path(journals),
                     "--index", self.path(journals, "index.sqlite"),
                     check=True, stdout=subprocess.DEVNULL)
        if self.ask("/api/state")["phase"] == "sign-in":
            self.ask("/api/scan", {"text": "B-1032"})
        for serial, board, _ in REFERENCES:
            self.test(board, serial)

    def answer(self, state):
        """What a person answers who sees that all is well, and hears it but for the noise."""
        if state["question"]:
            attempt, question = state["attempt"], state["question"]["name"]
            answer = "unsure" if self.kind == NOISE and question == "buzzer" else "yes"
            try:
                self.ask("/api/answer", {"attempt": attempt["id"], "serial": attempt["serial"],
                                         "question": question, "answer": answer})
            except urllib.error.HTTPError:  # it has been answered meanwhile
                pass

    def place(self, sample, station, serial, number, count, start, repair):
        """The attempt at another time and station, as a whole journal and its judgement; its id."""
        lines, judgement = sample
        shift = start - datetime.datetime.fromisoformat(judgement["start"])
        day = start.astimezone(datetime.timezone.utc).strftime("%Y%m%d")
        name = f"{station}-{day}-{count:04d}"
        operator = OPERATORS[station]
        renamed = [(judgement["id"], name), (judgement["serial"], serial),
                   ('"operator":"W1032"', f'"operator":"{operator}"')]
        previous, out = "0" * 64, []

        def checked(body):
            return body + ',"crc":"%08x"}' % binascii.crc32(body.encode())

        def add(body):
            nonlocal previous
            line = checked(body)
            previous = hashlib.sha256(line.encode()).hexdigest()
            out.append(line)

        def stamp(text):
            return milliseconds(datetime.datetime.fromisoformat(text) + shift)

        for line in lines:
            at = line[81:line.index('"', 81)]
            body = line[:line.rindex(',"crc"')].replace(at, stamp(at), 1)
            body = '{"prev":"' + previous + body[9 + 64:]
            if '"kind":"attempt"' in body[:140]:
                body = body.replace('"station":"3L02"', f'"station":"{station}"', 1)
                body = body.replace('"attempt":1', f'"attempt":{number}', 1)
            for old, new in renamed:
                body = body.replace(old, new)
            if '"kind":"board"' in body[:160]:  # the agent's line has a CRC of its own
                head, event = body.split('"event":', 1)
                body = head + '"event":' + checked(event[:event.rindex(',"crc"')])
            add(body)
            if repair and len(out) == 1:
                add(f'{{"prev":"{previous}","at":"{stamp(judgement["start"])}","kind":"repair",'
                    + json.dumps(repair)[1:-1])
        judged = {"lines": len(out), "sha256": previous}
        if judgement["verdict"] == "PASS":
            add(f'{{"prev":"{previous}","at":"{stamp(judgement["end"])}","kind":"scan-out",'
                f'"serial":"{serial}","operator":"{operator}"')
        late = self.random.random() < 0.02 + 0.01 * (start.day % 7)
        judgement = dict(judgement, id=name, serial=serial, station=station, operator=operator,
                         attempt=number, start=milliseconds(start), end=stamp(judgement["end"]),
                         journal=judged,
                         repairs=[{**repair, "at": repair["entered"]}] if repair else [],
                         drift=[{"fact": "rtc.difference", "value": int(late), "unit": "s"}])
        judgement.pop("release", None)  # what passed in that week has left the station
        folder = self.path("journals", day)
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, name + ".journal"), "w", encoding="utf-8") as file:
            file.write("\n".join(out) + "\n")
        with open(os.path.join(folder, name + ".judgement.json"), "w", encoding="utf-8") as file:
            file.write(json.dumps(judgement, ensure_ascii=False) + "\n")
        return name

    def repair(self, attempt, causes, entered):
        known = bool(causes) and self.random.random() < 0.9
        return {"of": attempt, "defect": causes[0]["defect"] if known else "",
                "text": "" if known else "焊点 / solder joint", "operator": "R3",
                "entered": milliseconds(entered)}

    def history(self):
        os.mkdir(self.path("journals"))  # there may be no working day to fill it
        samples, counts, serial = self.samples(), {}, 0
        now = datetime.datetime.now().astimezone()
        for back in range(self.options.days, 0, -1):
            day = (now - datetime.timedelta(days=back)).replace(hour=8, minute=5, second=0)
            if day.weekday() >= 5:
                continue
            for board in range(self.options.boards):
                serial += 1
                name = f"45270-26{day.isocalendar().week:02d}-{serial:04d}"
                station = self.random.choice(STATIONS)
                kind = self.random.choices([one for one, _ in MIX], [part for _, part in MIX])[0]
                if station == "3L02" and kind == "healthy" and self.random.random() < 0.05:
                    kind = "alarm-input-dead"
                start = day + datetime.timedelta(minutes=board * 480 / self.options.boards)
                repair = None
                for number in (1, 2):
                    key = (station, start.astimezone(datetime.timezone.utc).strftime("%Y%m%d"))
                    counts[key] = counts.get(key, 0) + 1
                    good = kind == "healthy"
                    identity = self.place(samples[kind], station, name, number, counts[key], start,
                                          repair if good else None)
                    if good:
                        break
                    entered = start + datetime.timedelta(minutes=5)
                    if kind != NOISE:
                        repair = self.repair(identity, samples[kind][1]["causes"], entered)
                    if kind == NOISE or self.random.random() < 0.85:
                        kind = "healthy"
                    start += datetime.timedelta(minutes=7)
                    station = self.random.choice(STATIONS)
        shutil.rmtree(self.path("samples"))
        self.station("index", "--index", self.path("journals", "index.sqlite"),
                     "--journals", self.path("journals"), check=True, stdout=subprocess.DEVNULL)

    # ---- the station ----

    def serve(self, journals, port, who):
        self.process = subprocess.Popen(
            [f"{self.build}/q7-station", "serve", "--listen", f"127.0.0.1:{port}",
             "--station", "3L02", *who, "--plans", self.path("plans"),
             "--journals", self.path(journals), "--dictionaries", self.path("dictionaries"),
             *self.words()],
            stdout=subprocess.PIPE, text=True,
            start_new_session=True)  # Ctrl-C ends it through us, when its board has ended
        self.url = self.process.stdout.readline().strip()
        return bool(self.url)

    def ask(self, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.url.rstrip("/") + path, data=data,
                                         headers={"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=5) as answer:
            return json.loads(answer.read())

    def arrive(self):
        """Scans board after board, answers after a person's while, and scans out what passed."""
        serial = int(time.time()) % 9000
        queue = []
        since, seen = time.monotonic(), None
        while not self.stopping.wait(0.3):
            try:
                state = self.ask("/api/state")
                phase, question = state["phase"], state["question"]
                key = (phase, (question or {}).get("name"), (state["attempt"] or {}).get("id"))
                if key != seen:
                    seen, since = key, time.monotonic()
                waited = time.monotonic() - since
                is_due = phase == "verdict" and state["verdict"]["scan_out"] == "due"
                if question and waited > 2.5:
                    self.answer(state)
                elif is_due and waited > 4:
                    self.ask("/api/scan", {"text": state["attempt"]["serial"]})
                elif phase == "waiting" and waited > 3 or phase == "verdict" and waited > 8:
                    if not queue:
                        queue = ["healthy", self.random.choice([one for one, _ in MIX[1:]])]
                    self.board(queue.pop(0))
                    serial += 1
                    self.ask("/api/scan", {"text": f"45270-2648-{serial % 10000:04d}"})
            except (OSError, ValueError, KeyError):
                pass

    def end(self):
        self.stopping.set()
        if self.process is not None:
            try:
                state = self.ask("/api/state")
                if state["phase"] == "running":  # the simulated board ends with its attempt
                    self.ask("/api/stop", {"attempt": state["attempt"]["id"]})
                    for _ in range(60):
                        if self.ask("/api/state")["phase"] not in ("running", "storing"):
                            break
                        time.sleep(0.25)
            except (OSError, ValueError, KeyError):
                pass
            self.process.terminate()
            self.process.wait(20)
        shutil.rmtree(self.folder, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build")
    parser.add_argument("--port", type=int, default=8077)
    parser.add_argument("--pace", type=float, default=4)
    parser.add_argument("--days", type=int, default=7)
    parser.add_argument("--boards", type=int, default=30)
    parser.add_argument("--arrive", action="store_true")
    options = parser.parse_args()
    line = Line(options)
    wanted = []
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: wanted.append(1))
    try:
        print("Simulating every defect of the board, and a week of boards ...", flush=True)
        line.board("healthy")
        line.dictionary()
        line.history()
        if not line.serve("journals", options.port, ["--people", line.path("people.toml")]):
            return 1
        line.prove("journals")
        line.pace(f"--pace {options.pace}")
        print(f"""\
{line.url}          the station; its plan takes serial numbers like 45270-2648-0001
{line.url}board     a board: scan, or type a serial number and Enter
{line.url}yield     the yield of the week; {line.url}states the legend
badges: operator B-1032, supervisor {SUPERVISOR}, repairer {REPAIRER}
Ctrl-C ends the demonstration.""", flush=True)
        if options.arrive:
            threading.Thread(target=line.arrive, daemon=True).start()
        while not wanted and line.process.poll() is None:
            time.sleep(0.2)
        return 0 if wanted else 1
    finally:
        line.end()


if __name__ == "__main__":
    sys.exit(main())
