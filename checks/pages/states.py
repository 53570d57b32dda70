"""States of the Station page, one for each picture: what the server would send."""

import copy
import json
import os

STEPS = ["buzzer", "panel", "network", "alarm", "rtc", "usb", "sata", "rs485", "info"]
SECONDS = [3.3, 11.1, 12.0, 10.1, 2.4, 1.9, 1.0, 6.0, 0.2]


def plan():
    facts = []

    def fact(name, step, wanted=""):
        facts.append({"name": name, "step": step, "wanted": wanted})

    for medium in ("copper", "fibre"):
        for port in range(1, 5):
            for what, wanted in (("link", "up"), ("duplex", "full"), ("speed", "1000")):
                fact(f"network.{medium}.{port}.{what}", "network", wanted)
    fact("alarm.inputs", "alarm", "16")
    fact("alarm.outputs", "alarm", "4")
    fact("alarm.idle.inputs", "alarm", "0x0")
    for output in range(1, 5):
        fact(f"alarm.output.{output}.inputs", "alarm", f"0x{0x1111 << (output - 1):04x}")
    fact("alarm.good", "alarm", "5")
    fact("alarm.bad", "alarm", "0")
    for pair in range(1, 4):
        fact(f"rtc.{pair}.difference", "rtc", "0 to 2")
    for run in (1, 2):
        fact(f"usb.{run}.disks", "usb", "4")
        fact(f"usb.{run}.rear.upper", "usb", "3.0")
        fact(f"usb.{run}.rear.lower", "usb", "3.0")
    for node in ("sda", "sdb", "sdc", "sdd", "esda"):
        fact(f"sata.{node}.state", "sata", "good")
        fact(f"sata.{node}.size", "sata", "≥ 900")
    fact("rs485.good", "rs485", "1024")
    fact("rs485.bad", "rs485", "0")
    for what in ("model", "panel", "arm", "memory", "flash", "cpld", "alarm_io"):
        fact(f"info.{what}", "info", "")
    return {"name": "QM-45270（DVR）", "model": "QM-45270", "revision": 12,
            "sha256": "8c1f2a07" + "0" * 56, "steps": STEPS,
            "questions": ["panel-leds", "panel-keys"], "facts": facts}


def base():
    return {"version": 1, "now": "2026-11-23T08:41:05.000+08:00", "station": "3L02",
            "operator": "W1032",
            "proof": {"number": "P-0231", "time": "2026-11-23T07:52:10.000+08:00"}, "unsent": 0,
            "database": True, "board": "connected", "phase": "waiting", "locked": [],
            "attempt": None, "plan": plan(),
            "steps": [{"name": name, "state": "not-yet", "seconds": seconds} for name,
                      seconds in zip(STEPS, SECONDS)], "progress": None, "facts": {}, "answers": {},
            "question": None, "verdict": None, "last": None, "refusal": None, }


def attempt(serial, number, sequence):
    return {"id": f"3L02-20261123-{sequence:04d}", "serial": serial, "number": number,
            "provisional": False}


def settle(state, steps):
    """Steps that ended, all their facts as wanted."""
    for step in state["steps"]:
        if step["name"] in steps:
            step["state"] = "pass"
    for fact in state["plan"]["facts"]:
        if fact["step"] in steps:
            state["facts"][fact["name"]] = {"state": "pass", "value": fact["wanted"],
                                            "wanted": fact["wanted"]}
    if "panel" in steps:
        state["answers"] = {"panel-leds": "yes", "panel-keys": "yes"}


def set_step(state, name, value):
    next(step for step in state["steps"] if step["name"] == name)["state"] = value


def verdict(state, word, items, causes=(), same=1, scan_out=None):
    state["phase"] = "verdict"
    about = state["attempt"]
    full = [{"name": step, "verdict": "pass", "reasons": []} for step in STEPS]
    for item in items:
        full = [item if one["name"] == item["name"] else one for one in full]
        if not any(one["name"] == item["name"] for one in full):
            full.append(item)
    state["verdict"] = {
        "verdict": word, "id": about["id"], "serial": about["serial"], "number": about["number"],
        "mark": "production", "items": full, "causes": list(causes), "same": same,
        "scan_out": scan_out, "lines": 281, "broke_off": None,
        "facts": {"good": 61, "wrong": 0, "missing": 0}, "problem": None,
        "stored": {"journal": True, "judgement": True, "database": "committed", "unsent": 0},
    }


def reason(code, word, fact="", value="", wanted="", unit="", line=0, text=""):
    return {"code": code, "verdict": word, "fact": fact, "value": value, "wanted": wanted,
            "unit": unit, "line": line, "text": text}


def waiting():
    state = base()
    state["board"] = "idle"
    state["last"] = {"verdict": "pass", "id": "3L02-20261123-0086", "serial": "45270-2648-0411",
                     "number": 1, "time": "2026-11-23T08:38:20.000+08:00", "released": True}
    return state


def running():
    state = base()
    state.update(now="2026-11-23T08:42:17.000+08:00", phase="running",
                 attempt=attempt("45270-2648-0412", 1, 87))
    settle(state, ["buzzer", "panel", "network"])
    set_step(state, "alarm", "running")
    state["progress"] = {"step": "alarm", "elapsed": 31, "left": 17, "over": 0, "silent": 3}
    return state


def question():
    state = base()
    state.update(now="2026-11-23T08:42:02.000+08:00", phase="running",
                 attempt=attempt("45270-2648-0412", 1, 87))
    settle(state, ["buzzer"])
    set_step(state, "panel", "waits")
    set_step(state, "network", "running")
    state["answers"] = {"panel-leds": "waiting", "panel-keys": "waiting"}
    state["question"] = {"name": "panel-leds", "number": 1, "count": 2, "left": 58}
    state["progress"] = {"step": "network", "elapsed": 16, "left": 32, "over": 0, "silent": 1}
    return state


def passed():
    state = base()
    state.update(now="2026-11-23T08:42:41.000+08:00", attempt=attempt("45270-2648-0412", 1, 87))
    settle(state, STEPS)
    verdict(state, "pass", [], scan_out="due")
    return state


def alarm_wrong(state, output, value, wanted):
    settle(state, STEPS)
    set_step(state, "alarm", "fail")
    state["facts"][f"alarm.output.{output}.inputs"] = {"state": "fail", "value": value,
                                                       "wanted": wanted}
    state["facts"]["alarm.good"] = {"state": "fail", "value": "4", "wanted": "5"}
    return {"name": "alarm", "verdict": "fail",
            "reasons": [reason("wrong", "fail", f"alarm.output.{output}.inputs", value, wanted,
                               "bits", 213),
                        reason("wrong", "fail", "alarm.good", "4", "5", "", 214),
                        reason("wrong", "fail", "summary.alarm", "bad", "good", "", 263)]}


def failed():
    state = base()
    state.update(now="2026-11-23T08:52:30.000+08:00", attempt=attempt("45270-2648-0413", 1, 88))
    item = alarm_wrong(state, 2, "0x2202", "0x2222")
    verdict(state, "fail", [item],
            [{"defect": "alarm.dead = [6]", "title": {"zh": "输入 6 断路", "en": "Input 6 open"},
              "exact": True, "matched": 4, "of": 4,
              "check": {"zh": "先换工装 6 号线；再查端子 6 的焊点和后面的光耦",
                        "en": "Try a new wire 6; then check terminal 6, its optocoupler"}},
             {"defect": "alarm.wiring = [[1, 5, 9, 13], [], [3, 7, 11, 15], [4, 8, 12, 16]]",
              "title": {"zh": "输出 2 不动作", "en": "Output 2 dead"}, "exact": False, "matched": 3,
              "of": 4, "would_show": [{"fact": "alarm.output.2.inputs", "value": "0x0000"}],
              "check": {"zh": "", "en": ""}},
             {"defect": "alarm.dead = [2]", "title": {"zh": "输入 2 断路", "en": "Input 2 open"},
              "exact": False, "matched": 3, "of": 4,
              "would_show": [{"fact": "alarm.output.2.inputs", "value": "0x2220"}],
              "check": {"zh": "", "en": ""}}])
    return state


def not_proven():
    state = base()
    state.update(now="2026-11-23T09:07:12.000+08:00", attempt=attempt("45270-2648-0414", 1, 91),
                 unsent=3, database=False)
    settle(state, [step for step in STEPS if step not in ("alarm", "rs485", "info")])
    for name in ("alarm", "rs485", "info"):
        set_step(state, name, "not-proven")
    verdict(state, "not-proven",
            [{"name": "alarm", "verdict": "not-proven",
              "reasons": [reason("missing-step", "not-proven")]},
             {"name": "rs485", "verdict": "not-proven",
              "reasons": [reason("missing-step", "not-proven")]},
             {"name": "info", "verdict": "not-proven",
              "reasons": [reason("missing-fact", "not-proven", "info.alarm_io")]}],
            [{"defect": "control = {boot_device_type = 0x4487, high_lines = [25]}",
              "title": {"zh": "启动参数说“无报警、无 485”",
                        "en": "Boot parameters: no alarm, no RS-485"},
              "exact": True, "matched": 9, "of": 9, "check": {"zh": "", "en": ""}}])
    state["verdict"]["stored"].update(database="spooled", unsent=3)
    return state


def failed_twice():
    state = base()
    state.update(now="2026-11-23T10:14:30.000+08:00", attempt=attempt("45270-2648-0398", 3, 102))
    item = alarm_wrong(state, 3, "0x4400", "0x4444")
    check = {"zh": "先换工装 3、7 号线；再查后面的光耦",
             "en": "Try new fixture wires 3, 7; then check the optocouplers"}
    verdict(state, "fail", [item],
            [{"defect": "alarm.dead = [3, 7]",
              "title": {"zh": "输入 3、7 断路", "en": "Inputs 3 and 7 open"}, "exact": True,
              "defects": [{}, {}], "matched": 4, "of": 4, "check": check},
             {"defect": "alarm.dead = [3]", "title": {"zh": "输入 3 断路", "en": "Input 3 open"},
              "exact": False, "matched": 3, "of": 4,
              "would_show": [{"fact": "alarm.output.3.inputs", "value": "0x4440"}], "check": check},
             {"defect": "alarm.dead = [7]", "title": {"zh": "输入 7 断路", "en": "Input 7 open"},
              "exact": False, "matched": 3, "of": 4,
              "would_show": [{"fact": "alarm.output.3.inputs", "value": "0x4404"}],
              "check": check}], same=3)
    return state


def incomplete():
    state = base()
    state.update(now="2026-11-23T09:20:12.000+08:00", attempt=attempt("45270-2648-0415", 1, 93),
                 board="lost")
    settle(state, ["buzzer", "panel", "network"])
    set_step(state, "alarm", "incomplete")
    for name in ("rtc", "usb", "sata", "rs485", "info"):
        set_step(state, name, "not-yet")
    verdict(state, "incomplete",
            [{"name": "run", "verdict": "incomplete",
              "reasons": [reason("cut-off", "incomplete")]}])
    state["verdict"]["broke_off"] = "alarm"
    return state


def signing_in():
    state = waiting()
    state.update(phase="sign-in", operator=None)
    return state


def locked():
    state = waiting()
    state.update(phase="locked", locked=["no-proof"], proof=None)
    return state


def proof_due():
    state = locked()
    state.update(locked=["proof-boards"],
                 proof={"number": "P-0232", "time": "2026-11-23T07:52:00.000+08:00",
                        "state": "boards-due",
                        "next": {"serial": "45270-0000-0002", "verdict": "fail"}})
    return state


def proof_failed():
    state = proof_due()
    state.update(locked=["proof-failed"])
    state["proof"].update(state="failed", next=None)
    return state


def asking():
    state = waiting()
    state.update(phase="asking", attempt=dict(attempt("45270-2648-0412", 1, 87), id=None))
    return state


def refused():
    state = asking()
    state.update(phase="refused",
                 factory={"refused": "工单 WO-1123 已经关上；this work order is closed",
                          "problem": "status 1"})
    return state


def supervised():
    state = waiting()
    state.update(supervisor="S7", mark="trial")
    return state


def reference_failed():
    state = failed()
    state["attempt"]["mark"] = state["verdict"]["mark"] = "reference"
    state["proof"].update(state="good", next=None)
    return state


def reference_passed():
    state = passed()
    state["attempt"]["mark"] = state["verdict"]["mark"] = "reference"
    state["verdict"]["scan_out"] = None
    state["proof"].update(state="boards-due", next={"serial": "45270-0000-0002", "verdict": "fail"})
    return state


def first_board():
    state = waiting()
    state["last"] = None
    return state


def keys():
    state = running()
    state["progress"] = {"step": "panel", "elapsed": 5, "left": 43, "over": 0, "silent": 0}
    state["facts"], state["answers"] = {}, {}
    for step in state["steps"]:
        step["state"] = {"buzzer": "pass", "panel": "running"}.get(step["name"], "not-yet")
    return state


def question_keys():
    state = question()
    state["question"] = {"name": "panel-keys", "number": 2, "count": 2, "left": 31}
    state["answers"]["panel-leds"] = "yes"
    return state


def last_of(word):
    state = waiting()
    state["last"]["verdict"] = word
    state["last"]["released"] = False
    return state


def no_dictionary():
    state = failed()
    state["verdict"]["causes"] = []
    return state


def long_check():
    state = failed()
    state["verdict"]["causes"][0]["check"] = {
        "zh": "听继电器 2：不吸合，查驱动管和线圈；吸合，查端子 2 和工装线",
        "en": "Listen to relay 2: if silent, check its driver and coil; "
              "if it clicks, terminal 2 and the fixture wire"}
    return state


def failed_by(step, why, now):
    state = base()
    state.update(now=now, attempt=attempt("45270-2648-0413", 1, 88))
    verdict(state, "fail", [{"name": step, "verdict": "fail", "reasons": [why]}])
    return state


def wide_limit():
    why = reason("wrong", "fail", "sata.esda.size", "500", "≥ 900", "GB", 90)
    return failed_by("sata", why, "2026-11-23T08:53:30.000+08:00")


def long_line():
    text = "a line that q7 printed, and that nobody expected to be this long at all: /dev/sda1"
    why = reason("unexplained", "fail", line=12, text=text)
    return failed_by("usb", why, "2026-11-23T08:54:30.000+08:00")


ALL = {"1-waiting": waiting, "2-running": running, "3-question": question, "4-pass": passed,
       "5-fail": failed, "6-not-proven": not_proven, "9-fail-en": failed_twice, "10-phone": running,
       "long-check": long_check, "wide-limit": wide_limit, "long-line": long_line,
       "no-dictionary": no_dictionary, "incomplete": incomplete, "proof-due": proof_due,
       "proof-failed": proof_failed, "asking": asking, "refused": refused,
       "supervised": supervised, "reference-failed": reference_failed,
       "reference-passed": reference_passed, "first-board": first_board, "sign-in": signing_in,
       "locked": locked, "keys": keys, "question-keys": question_keys,
       "last-fail": lambda: last_of("fail"), "last-not-proven": lambda: last_of("not-proven"),
       "last-incomplete": lambda: last_of("incomplete")}


def empty_yield():
    with open(os.path.join(os.path.dirname(__file__), "yield.json"), encoding="utf-8") as file:
        found = json.load(file)
    found["totals"] = {name: 0 for name in found["totals"]}
    found.update(series={"by": "day", "rows": [], "low": None}, drift={"days": [], "rows": []},
                 items=[])
    return found


def state(name):
    return copy.deepcopy(ALL[name]())
