"""The station's pages in a browser, with simulated boards: scans, keys, reloads, a killed server.

usage: browser_check.py BUILD [-k PATTERN] [--screenshots FOLDER]
"""

import argparse
import json
import os
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.chrome.service import Service

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(SOURCE, "checks", "pages"))
import fixture_server  # noqa: E402
import states  # noqa: E402

options = argparse.Namespace(build="build", screenshots=None)


def start_browser():
    settings = webdriver.ChromeOptions()
    profile = tempfile.mkdtemp(prefix="q7-browser-")
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update",
                     "--disable-sync", "--hide-scrollbars", "--force-device-scale-factor=1",
                     f"--user-data-dir={profile}"):
        settings.add_argument(argument)
    settings.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=settings)
    driver.profile = profile
    resize(driver, 1280, 800)
    return driver


def resize(driver, width, height):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": width, "height": height, "deviceScaleFactor": 1,
                            "mobile": width < 600})


class Station:
    """A server of one station, in a folder of its own, with the board that `board` names."""

    def __init__(self, plan_changes=(), answer_s=60, pace=50, questions=True):
        self.folder = tempfile.mkdtemp(prefix="q7-pages-")
        with open(os.path.join(SOURCE, "plans", "healthy.toml"), encoding="utf-8") as file:
            plan = file.read().replace("answer_s = 60", f"answer_s = {answer_s}")
        for old, new in plan_changes:
            assert old in plan, old
            plan = plan.replace(old, new)
        if not questions:  # nobody has to answer: for checks of something else
            plan = re.sub(r"\[\[questions\]\]\nname = .*\nstep = .*\n+", "", plan)
        os.mkdir(self.path("plans"))
        with open(self.path("plans", "plan.toml"), "w", encoding="utf-8") as file:
            file.write(plan)
        with open(self.path("people.toml"), "w", encoding="utf-8") as file:
            file.write('[[operator]]\nname = "W1032"\nbadge = "B-1032"\n'
                       '[[supervisor]]\nname = "S7"\nbadge = "super-0123456789abcdef"\n'
                       '[[repairer]]\nname = "R3"\nbadge = "R-0003"\n')
        with open(self.path("sim"), "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\nexec {options.build}/q7-sim --gbk --pace {pace} '
                       f'--fifo {self.path("fifo")} --board "$(cat {self.path("board")})" "$@"\n')
        os.chmod(self.path("sim"), 0o700)
        self.board("healthy")
        self.process = None
        self.port = 0

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def board(self, name, text=None):
        path = os.path.join(SOURCE, "boards", name + ".toml")
        if text is not None:
            path = self.path(name + ".toml")
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        with open(self.path("board"), "w", encoding="utf-8") as file:
            file.write(path)

    def start(self, people=False, more=()):
        who = ["--people", self.path("people.toml")] if people else ["--operator", "W1032"]
        self.process = subprocess.Popen(
            [f"{options.build}/q7-station", "serve", "--listen", f"127.0.0.1:{self.port}",
             "--station", "3L02", "--plans", self.path("plans"),
             "--journals", self.path("journals"), *who, *more, "--",
             f"{options.build}/q7-agent", "run", "--fifo", self.path("fifo"),
             "--spool", self.path("spool"), "--", self.path("sim")],
            stdout=subprocess.PIPE, text=True)
        self.url = self.process.stdout.readline().strip()
        self.port = int(re.search(r":(\d+)/", self.url).group(1))

    def end(self, how=signal.SIGTERM):
        if self.process is None:
            return
        self.process.send_signal(how)
        self.process.wait(10)
        self.process.stdout.close()
        self.process = None

    def remove(self):
        self.end()
        shutil.rmtree(self.folder, ignore_errors=True)


class PageCase(unittest.TestCase):
    browser = None

    @classmethod
    def setUpClass(cls):
        cls.browser = start_browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.browser.profile, ignore_errors=True)

    # What a person does.
    def scan(self, code):
        ActionChains(self.browser).send_keys(code + Keys.ENTER).perform()

    def press(self, key, seconds=0.35):
        ActionChains(self.browser).key_down(key).pause(seconds).key_up(key).perform()

    # What a person sees.
    def wait(self, what, seconds=15):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            found = what()
            if found:
                return found
            time.sleep(0.05)
        self.fail(f"not within {seconds} s; the page shows: {self.phase()} {self.shown()[:600]}")

    def phase(self):
        return self.browser.execute_script("return document.body.dataset.phase ?? ''")

    def shown(self):
        return self.browser.execute_script("return document.body.innerText")

    def data(self, name):
        """data-NAME of the first element that has it."""
        return self.browser.execute_script(
            f"return document.querySelector('[data-{name}]')?.dataset.{name}")

    def question(self):
        return self.data("question")

    def verdict(self):
        return self.data("verdict")

    def states_of(self, kind):
        return self.browser.execute_script(
            f"const all = [...document.querySelectorAll('[data-{kind}]')];"
            f"return Object.fromEntries(all.map(e => [e.dataset.{kind}, e.dataset.state]))")

    def answer_all(self, answers):
        """Answers each question as it comes, until the verdict stands."""
        end = time.monotonic() + 30
        while time.monotonic() < end and self.phase() != "verdict":
            asked = self.question()
            if asked:
                self.press(answers.get(asked, Keys.F2))
                self.wait(lambda: self.question() != asked)
            elif options.screenshots and self.states_of("step").get("alarm") == "running":
                self.screenshot("running")
            time.sleep(0.05)
        self.assertEqual(self.phase(), "verdict", self.shown())
        return self.verdict()

    def screenshot(self, name):
        if options.screenshots:
            time.sleep(0.2)
            self.browser.save_screenshot(os.path.join(options.screenshots, f"station-{name}.png"))

    def assert_no_errors(self):
        errors = [line for line in self.browser.get_log("browser") if line["level"] == "SEVERE"
                  and not re.search(r"ERR_INTERNET_DISCONNECTED|ERR_CONNECTION|ERR_INCOMPLETE|409",
                                    line["message"])]
        self.assertEqual(errors, [])


class StationPage(PageCase):
    def setUp(self):
        self.use(Station([("scan_out = false", "scan_out = true")]))

    def use(self, station):
        self.station = station
        self.addCleanup(station.remove)

    def open(self, **more):
        self.station.start(**more)
        self.browser.get(self.station.url)
        self.browser.execute_script("localStorage.clear()")
        self.wait(lambda: self.phase())

    def journal(self):
        folder = self.station.path("journals")
        path = sorted(os.path.join(at, name) for at, _, names in os.walk(folder)
                      for name in names if name.endswith(".journal"))[-1]
        with open(path, encoding="utf-8") as file:
            return [json.loads(line) for line in file]

    def test_a_run_by_scanner_and_keys_alone(self):
        self.open(people=True)
        self.wait(lambda: self.phase() == "sign-in")
        self.scan("45270-2648-0412")
        self.wait(lambda: "先扫工牌" in self.shown())
        self.scan("B-1032")
        self.wait(lambda: self.phase() == "waiting")
        self.scan("not a serial number")
        self.wait(lambda: "不是本机型的序列号" in self.shown())
        self.screenshot("waiting")
        self.scan("45270-2648-0412")
        self.wait(lambda: self.question() == "buzzer")
        # Neither a scan with Enter nor a short stroke, Enter, Space or Esc answers.
        self.scan("45270-2648-0413")
        self.press(Keys.F2, 0.05)
        others = Keys.ENTER + Keys.SPACE + Keys.ESCAPE + Keys.TAB
        ActionChains(self.browser).send_keys(others).perform()
        time.sleep(0.3)
        self.assertEqual(self.question(), "buzzer")
        self.assertIn("先回答问题", self.shown())
        # The answer of an earlier question, and one of another serial number, are refused.
        refused = self.browser.execute_async_script("""
            const done = arguments[0];
            const post = (state, question, serial) =>
              fetch('/api/answer', {method: 'POST', headers: {'Content-Type': 'application/json'},
                body: JSON.stringify(
                  {attempt: state.attempt.id, serial, question, answer: 'yes'})});
            fetch('/api/state').then(r => r.json()).then(state => Promise.all([
              post(state, 'panel-leds', state.attempt.serial),
              post(state, 'buzzer', '45270-0000-0000'),
            ])).then(all => done(all.map(r => r.status)))""")
        self.assertEqual(refused, [409, 409])
        # The question is there again after a reload.
        self.browser.refresh()
        self.wait(lambda: self.question() == "buzzer")
        self.press(Keys.F2)
        self.wait(lambda: self.question() == "panel-leds")
        self.screenshot("question")
        self.assertEqual(self.states_of("step")["panel"], "waits")
        self.assertEqual(self.answer_all({}), "pass")
        self.assertIn("再扫一次", self.shown())
        self.screenshot("pass")
        answers = [line for line in self.journal() if line["kind"] == "answer"]
        self.assertEqual([(one["question"], one["answer"], one["operator"], one["via"])
                          for one in answers],
                         [("buzzer", "yes", "W1032", "page"),
                          ("panel-leds", "yes", "W1032", "page"),
                          ("panel-keys", "yes", "W1032", "page")])
        # The verdict stays, over a reload too, until the board is scanned out.
        self.press(Keys.ENTER)
        self.browser.refresh()
        self.wait(lambda: self.verdict() == "pass")
        self.scan("45270-2648-0412")
        self.wait(lambda: self.phase() == "waiting")
        self.assertIn("已扫码放行", self.shown())
        self.assertEqual(self.journal()[-1]["kind"], "scan-out")
        self.assert_no_errors()

    def run_board(self, serial, board, expected, answers=None):
        self.station.board(board)
        self.scan(serial)
        self.wait(lambda: self.phase() not in ("verdict", "waiting", "locked"))
        self.assertEqual(self.answer_all(answers or {}), expected)

    def attempts(self):
        """Of every journal the first line, in order."""
        found = []
        for at, _, names in sorted(os.walk(self.station.path("journals"))):
            for name in sorted(name for name in names if name.endswith(".journal")):
                with open(os.path.join(at, name), encoding="utf-8") as file:
                    found.append(json.loads(file.readline()))
        return found

    def prove(self):
        made = subprocess.run(
            [f"{options.build}/q7-station", "prove", "--station", "3L02",
             "--plan", self.station.path("plans", "plan.toml"),
             "--board", os.path.join(SOURCE, "boards", "healthy.toml"),
             "--simulator", f"{options.build}/q7-sim",
             "--journals", self.station.path("journals")],
            capture_output=True, text=True, check=False)
        self.assertEqual(made.returncode, 0, made.stdout + made.stderr)
        self.assertEqual(len(re.findall("^ok ", made.stdout, re.M)), 10)

    def test_no_production_before_the_proof_of_the_shift(self):
        references = ('[[reference]]\nserial = "45270-0000-0001"\nverdict = "PASS"\n'
                      '[[reference]]\nserial = "45270-0000-0002"\nverdict = "FAIL"\n\n[facts]')
        self.use(Station([("\n[facts]", "\n" + references)]))
        self.open()
        self.wait(lambda: "缺本班的开班验证" in self.shown())
        self.scan("45270-2648-0412")
        self.wait(lambda: "不能开始" in self.shown())
        self.assertFalse(self.attempts())
        self.prove()
        self.wait(lambda: "45270-0000-0001，要合格" in self.shown())
        self.screenshot("locked")
        self.run_board("45270-0000-0001", "healthy", "pass")
        self.assertRegex(self.shown(), r"接着扫\s+参考板")
        self.scan("45270-2648-0412")
        self.wait(lambda: self.phase() == "locked" and "45270-0000-0002，要不良" in self.shown())
        self.run_board("45270-0000-0002", "alarm-input-dead", "fail")
        self.assertIn("验证做完", self.shown())
        self.run_board("45270-2648-0412", "healthy", "pass")
        self.assertEqual([(one["mark"], one["shift"]) for one in self.attempts()],
                         [("reference", "P-0001")] * 12 + [("production", "P-0001")])
        # A restarted server shows the board, not a simulated one of another proof; and a reference
        # board with another verdict fails that proof.
        self.prove()
        self.station.end()
        self.station.start()
        self.wait(lambda: self.verdict() == "pass" and "45270-2648-0412" in self.shown()
                  and "P-0002" in self.shown())
        self.run_board("45270-0000-0001", "alarm-input-dead", "fail")
        self.wait(lambda: "验证不合要求" in self.shown())
        self.run_board("45270-0000-0001", "healthy", "pass")
        self.scan("45270-2648-0413")
        self.wait(lambda: "看不准故障" in self.shown())
        self.assert_no_errors()

    def test_a_repair_goes_into_the_next_attempt(self):
        self.use(Station(questions=False))
        self.open(people=True)
        self.scan("B-1032")
        self.wait(lambda: self.phase() == "waiting")
        self.run_board("45270-2648-0413", "alarm-input-dead", "fail")
        failed = self.attempts()[0]["id"]
        self.browser.get(self.station.url + "board?serial=45270-2648-0413")
        self.wait(lambda: "登记维修" in self.shown())
        self.browser.find_element(By.XPATH, "//button[text()='登记维修']").click()
        self.browser.find_element(By.CSS_SELECTOR, "#repair input").send_keys("光耦 6" + Keys.ENTER)
        self.browser.find_element(By.CSS_SELECTOR, "#repair h2").click()
        self.browser.execute_script("document.activeElement.blur()")

        def store():
            self.browser.find_element(By.CSS_SELECTOR, "#repair .main").click()

        self.scan("B-1032")  # an operator repairs nothing
        self.assertTrue(self.browser.find_elements(By.CSS_SELECTOR, "#repair"))
        store()
        self.wait(lambda: "不认识的工牌" in self.shown())
        self.scan("R-0003")
        self.screenshot("repair")
        store()
        self.wait(lambda: "已修：光耦 6 • R3 • 等下一次测试记入" in self.shown())
        self.browser.get(self.station.url)
        self.run_board("45270-2648-0413", "healthy", "pass")
        repairs = [line for line in self.journal() if line["kind"] == "repair"]
        self.assertEqual([(one["of"], one["text"], one["operator"]) for one in repairs],
                         [(failed, "光耦 6", "R3")])
        self.assertEqual(os.listdir(self.station.path("journals", "repairs")), [])
        self.browser.get(self.station.url + f"board?serial=45270-2648-0413&id={failed}")
        self.wait(lambda: re.search(r"已修：光耦 6 • R3 • \d\d:\d\d", self.shown()))
        # Index and exports have it, made again from the journals too.
        exported = [f"{options.build}/q7-station", "export", "--format", "json",
                    "--journals", self.station.path("journals"), "--index"]
        again = self.station.path("again.sqlite")
        subprocess.run([f"{options.build}/q7-station", "index",
                        "--journals", self.station.path("journals"), "--index", again],
                       check=True, capture_output=True)
        for index in (self.station.path("journals", "index.sqlite"), again):
            export = subprocess.run([*exported, index], check=True, capture_output=True, text=True)
            self.assertEqual([[(r["of"], r["text"], r["operator"]) for r in one["repairs"]]
                              for one in json.loads(export.stdout)["attempts"]],
                             [[], [(failed, "光耦 6", "R3")]])
        self.assert_no_errors()

    def test_a_trial_run_is_marked_by_a_supervisor_and_releases_nothing(self):
        self.use(Station(questions=False))
        self.open(people=True)
        self.scan("B-1032")
        self.wait(lambda: self.phase() == "waiting")
        marked = """
            const headers = {'Content-Type': 'application/json'};
            const body = JSON.stringify({mark: 'trial'});
            return fetch('/api/mark', {method: 'POST', headers, body}).then(r => r.status)"""
        self.assertEqual(self.browser.execute_script(marked), 409)
        self.scan("super-0123456789abcdef")
        self.wait(lambda: "主管 S7" in self.shown())
        self.press(Keys.F2)
        mark = "//*[@id='identity']//*[text()='试跑']"
        self.wait(lambda: self.browser.find_elements(By.XPATH, mark))
        self.run_board("45270-2648-0420", "healthy", "pass")
        self.assertIn("不放行", self.shown())
        self.run_board("45270-2648-0421", "healthy", "pass")
        self.assertEqual([(one["mark"], one.get("marked_by"), one["operator"])
                          for one in self.attempts()],
                         [("trial", "S7", "W1032"), ("production", None, "W1032")])
        totals = self.browser.execute_script(
            "return fetch('/api/yield').then(r => r.json()).then(found => found.totals)")
        self.assertEqual((totals["first"], totals["trial"]), (1, 1))

    def test_the_factory_may_refuse_a_start_and_gets_every_verdict(self):
        self.use(Station(questions=False))
        got, asked = self.station.path("got"), self.station.path("asked")
        with open(self.station.path("before"), "w", encoding="utf-8") as file:
            file.write(f"tee -a {asked} | grep -q 0499 "
                       "&& { echo '工单关了 <b>WO-7</b>'; exit 1; }; exit 0\n")
        self.open(more=["--before", f"sh {self.station.path('before')}", "--after", f"cat >>{got}"])
        self.scan("45270-2648-0499")
        self.wait(lambda: self.phase() == "refused")
        self.assertIn("工单关了 <b>WO-7</b>", self.shown())
        self.assertFalse(self.attempts())
        self.run_board("45270-2648-0412", "healthy", "pass")
        self.wait(lambda: os.path.exists(got) and os.path.getsize(got))
        with open(got, encoding="utf-8") as file:
            told = [json.loads(line) for line in file]
        self.assertEqual([(one["serial"], one["verdict"], one["station"]) for one in told],
                         [("45270-2648-0412", "PASS", "3L02")])
        with open(asked, encoding="utf-8") as file:
            self.assertEqual([json.loads(line)["serial"] for line in file],
                             ["45270-2648-0499", "45270-2648-0412"])
        # Behind F8: items, record, the replay of the attempt, and back.
        for shown in ("items", "transcript", "replay"):
            self.press(Keys.F8)
        self.wait(lambda: self.phase() == "replay" and "running" in self.states_of("step").values())
        self.wait(lambda: "重放完" in self.shown()
                  and set(self.states_of("step").values()) == {"pass"}, 12)
        self.press(Keys.F8)
        self.wait(lambda: self.verdict() == "pass")
        self.assert_no_errors()

    def test_another_board_at_the_release_is_no_pass(self):
        self.open()
        self.scan("45270-2648-0412")
        self.assertEqual(self.answer_all({}), "pass")
        self.scan("45270-2648-0499")
        self.wait(lambda: self.verdict() == "not-proven")
        self.assertIn("放行扫到另一块板", self.shown())

    def test_a_killed_server_takes_the_run_up_again_and_a_page_that_was_away_comes_back(self):
        self.use(Station(pace=20))
        self.open()
        self.scan("45270-2648-0412")
        self.wait(lambda: self.question() == "panel-leds"
                  or (self.question() == "buzzer" and (self.press(Keys.F2) or False)))
        self.station.end(signal.SIGKILL)
        self.wait(lambda: self.phase() == "away", 8)
        self.assertIn("服务器没有回应", self.shown())
        self.assertEqual(set(self.states_of("step").values()), {"not-yet"})
        self.screenshot("away")
        self.station.start()
        self.wait(lambda: self.phase() != "away", 8)
        self.assertEqual(self.answer_all({}), "pass")
        self.assertEqual([line["kind"] for line in self.journal()
                          if line["kind"] in ("resumed", "end")], ["resumed", "end"])
        events = [line["event"]["n"] for line in self.journal() if line["kind"] == "board"]
        self.assertEqual(events, list(range(1, len(events) + 1)))
        # Ten seconds in which nothing comes: said on the page, and the true state afterwards.
        self.station.process.send_signal(signal.SIGSTOP)
        cut = time.monotonic()
        self.wait(lambda: self.phase() == "away", 8)
        self.assertIsNone(self.verdict())
        time.sleep(max(0, cut + 10 - time.monotonic()))
        self.station.process.send_signal(signal.SIGCONT)
        self.wait(lambda: self.verdict() == "pass", 8)

    def test_a_fault_is_shown_at_its_connector_in_both_languages(self):
        self.station.board("alarm-input-dead")
        self.open()
        self.scan("45270-2648-0413")
        self.assertEqual(self.answer_all({}), "fail")
        slots = self.states_of("slot")
        self.assertEqual([name for name, state in slots.items() if state == "fail"],
                         ["alarm-inputs.6"])
        self.assertIn("报警输入 6 不动作", self.shown())
        self.screenshot("fail")
        self.browser.find_element(By.CSS_SELECTOR, ".languages [lang=en]").click()
        self.wait(lambda: "Alarm input 6" in self.shown())
        self.assertNotRegex(self.shown().replace("中文", ""), r"[\u4e00-\u9fff]")
        # Items and transcript behind F8, with the reason at its line.
        self.press(Keys.F8)
        self.wait(lambda: "Reasons" in self.shown())
        self.press(Keys.F8)
        self.wait(lambda: self.browser.find_elements(By.CSS_SELECTOR, "#sheet .line.reason"))
        self.press(Keys.F8)
        self.wait(lambda: self.verdict() == "fail")

    def test_steps_that_did_not_run_are_not_proven(self):
        with open(os.path.join(SOURCE, "boards", "healthy.toml"), encoding="utf-8") as file:
            board = file.read().replace("boot_device_type = 0x1234",
                                        "boot_device_type = 0x4487\nhigh_lines = [25]")
        self.assertIn("high_lines", board)
        self.station.board("no-alarm", board)
        self.open()
        self.scan("45270-2648-0414")
        self.assertEqual(self.answer_all({}), "not-proven")
        steps = self.states_of("step")
        self.assertEqual({name for name, state in steps.items() if state == "not-proven"},
                         {"alarm", "rs485", "info"})
        self.assertIn("两步没有运行", self.shown())
        self.assertIn("没有测，不算数", self.shown())
        self.assertNotIn("不良", self.shown())
        self.screenshot("not-proven")

    def test_texts_of_a_disk_are_texts(self):
        disk = 'sda = {serial = "SIM-0001", model = "<script>alert(1)</script>"'
        with open(os.path.join(SOURCE, "boards", "healthy.toml"), encoding="utf-8") as file:
            board = file.read()
        board = board.replace('sda = {serial = "SIM-0001", model = "Simulated disk 1 TB"', disk)
        board = board.replace('sdb = {serial = "SIM-0002", model = "Simulated disk 1 TB"',
                              'sdb = {serial = "SIM-0002", model = "=HYPERLINK(1)"')
        self.assertIn(disk, board)
        self.use(Station(questions=False))
        self.station.board("evil", board)
        self.open()
        self.scan("45270-2648-0414")
        self.answer_all({Keys.F2: Keys.F2})
        self.browser.get(self.station.url + "board?serial=45270-2648-0414")
        self.wait(lambda: self.browser.find_elements(By.CSS_SELECTOR, ".line.fold, .line"))
        for fold in self.browser.find_elements(By.CSS_SELECTOR, ".line.fold"):
            fold.click()
        transcript = "return document.querySelector('.transcript').textContent"
        self.wait(lambda: "<script>alert(1)</script>" in self.browser.execute_script(transcript))
        self.assertIn("=HYPERLINK(1)", self.browser.execute_script(transcript))
        scripts = "return document.querySelectorAll('#page script').length"
        self.assertEqual(self.browser.execute_script(scripts), 0)
        self.assert_no_errors()

    def test_a_locked_database_leaves_a_pass_that_is_sent_later(self):
        self.use(Station())
        self.open()
        self.scan("45270-2648-0415")
        self.wait(lambda: self.question())
        lock = sqlite3.connect(self.station.path("journals", "index.sqlite"), isolation_level=None)
        lock.execute("BEGIN EXCLUSIVE")
        self.assertEqual(self.answer_all({}), "pass")
        self.assertIn("待传 1", self.shown())
        self.assertIn("未上传 1", self.shown())
        lock.execute("ROLLBACK")
        lock.close()
        self.wait(lambda: "未上传\n0" in self.shown(), 12)

    def test_no_pass_where_nothing_can_be_stored(self):
        disk = self.station.path("journals")
        os.mkdir(disk)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=48k", "tmpfs", disk],
                          capture_output=True).returncode != 0:
            self.skipTest("no file system of its own can be mounted here")
        self.addCleanup(subprocess.run, ["umount", "-l", disk], check=False)
        self.open()
        self.scan("45270-2648-0416")
        self.wait(lambda: self.phase() == "locked" or (self.question() and self.press(Keys.F2)), 20)
        self.assertIn("磁盘已满", self.shown())
        self.assertNotIn("合格", self.shown())
        self.screenshot("disk-full")


class FixturePages(PageCase):
    """Every state in both languages: complete, and nothing out of its place."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server = fixture_server.serve()

    @classmethod
    def tearDownClass(cls):
        cls.server.shutdown()
        cls.server.server_close()
        super().tearDownClass()

    def show(self, page, language="zh"):
        """A state of the Station page, or the page board or yield."""
        is_state = page in states.ALL
        here = f"http://127.0.0.1:{self.server.server_port}/"
        if is_state:
            fixture_server.current["name"] = page
        if not is_state or self.browser.current_url != here:
            self.browser.get(here if is_state else here + page)
        self.browser.execute_script(
            "localStorage.setItem('language', arguments[0]);"
            "dispatchEvent(new Event('languagechange-here'))", language)
        if is_state:
            now = states.state(page)["now"][11:19]
            phase = "question" if states.state(page)["question"] else states.state(page)["phase"]
            self.wait(lambda: self.phase() == phase and now in self.shown())
        else:
            there = "#board .record, #yield .tile, .empty, .legend .plate, #board .head"
            self.wait(lambda: self.browser.find_elements(By.CSS_SELECTOR, there))
            if "serial" in page:
                self.wait(lambda: self.browser.find_elements(By.CSS_SELECTOR, "#board .record"))

    def test_texts_fit_and_can_be_read_in_both_languages(self):
        outside = """
            const edge = (e) => {
              let p = e.parentElement;
              while (p && getComputedStyle(p).overflowX !== 'hidden') p = p.parentElement;
              return p ? p.getBoundingClientRect().right : innerWidth;
            };
            const looked = (e) => e.children.length === 0 && e.textContent.trim()
              && !e.closest('svg, select, .transcript, .scroll, .check, .repair');
            return [...document.querySelectorAll('#page *')].filter(e => looked(e)
              && (e.scrollWidth > e.clientWidth + 1 && getComputedStyle(e).display !== 'inline'
                || e.getBoundingClientRect().right > edge(e) + 1
                || e.getBoundingClientRect().bottom > innerHeight + 1)).map(e => e.textContent)"""
        # What a text stands on is what the browser finds below it; 4.5 to 1, nothing below 15 px.
        unreadable = """
            const rgb = (colour) => {
              const m = /rgba?\\((\\d+), (\\d+), (\\d+)(?:, ([\\d.]+))?/.exec(colour);
              return m && (m[4] ?? 1) > 0.99 ? [+m[1], +m[2], +m[3]] : null;
            };
            const linear = (v) => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4;
            const light = (c) => {
              const [r, g, b] = c.map(v => linear(v / 255));
              return 0.2126 * r + 0.7152 * g + 0.0722 * b;
            };
            const contrast = (a, b) => {
              const [x, y] = [light(a), light(b)].sort((p, q) => q - p);
              return (x + 0.05) / (y + 0.05);
            };
            const isShape = (e) => e instanceof SVGElement && !(e instanceof SVGSVGElement)
              && e.tagName !== 'g' && e.tagName !== 'text';
            const below = (text) => {
              const box = text.getBoundingClientRect();
              const x = box.left + box.width / 2, y = box.top + box.height / 2;
              const all = document.elementsFromPoint(x, y), at = all.indexOf(text);
              if (at < 0) return null;
              for (const e of all.slice(text instanceof SVGElement ? at + 1 : at)) {
                const style = getComputedStyle(e);
                const c = rgb(isShape(e) ? style.fill : style.backgroundColor);
                if (c) return c;
              }
              return rgb(getComputedStyle(document.body).backgroundColor);
            };
            const isText = (n) => n.nodeType === 3 && n.textContent.trim();
            const says = (e) => [...e.childNodes].some(isText);
            const texts = [...document.querySelectorAll('#page *')].filter(says);
            return texts.filter(e => !e.closest('select')).flatMap(e => {
              const style = getComputedStyle(e), size = parseFloat(style.fontSize);
              const ink = rgb(e instanceof SVGElement ? style.fill : style.color);
              const ground = below(e);
              const found = ground && ink ? contrast(ink, ground) : null;
              return size < arguments[0] || found !== null && found < 4.5
                ? [`${e.textContent} ${size} px ${found?.toFixed(2)}`] : [];
            })"""
        pages = [name for name in states.ALL if name != "10-phone"]
        pages += ["board?serial=45270-2648-0413", "yield", "yield?item=none", "states", "board"]
        for page in pages:
            for language in ("zh", "en"):
                with self.subTest(page=page, language=language):
                    self.show(page, language)
                    self.assertEqual(self.browser.execute_script(outside), [])
                    self.assertEqual(self.browser.execute_script(unreadable, 15), [])
        self.assert_no_errors()

    def test_colours_keep_their_contrasts(self):
        self.show("1-waiting")
        names = ["white", "plate", "ink", "ink-2", "grey", "blue", "green", "green-tint",
                 "green-panel", "red", "amber"]
        tokens = self.browser.execute_script("""
            const s = getComputedStyle(document.documentElement);
            const value = (name) => s.getPropertyValue('--' + name).trim();
            return Object.fromEntries(arguments[0].map(name => [name, value(name)]))""", names)

        def light(name):
            parts = [int(tokens[name][i:i + 2], 16) / 255 for i in (1, 3, 5)]
            r, g, b = [v / 12.92 if v <= 0.03928 else ((v + 0.055) / 1.055) ** 2.4 for v in parts]
            return 0.2126 * r + 0.7152 * g + 0.0722 * b

        for a, b, wanted in (("ink", "white", 17.9), ("ink-2", "white", 8.8),
                             ("grey", "white", 5.4), ("grey", "plate", 3.9), ("blue", "white", 7.1),
                             ("blue", "plate", 5.1), ("green", "green-tint", 5.3),
                             ("green", "plate", 4.7), ("green-panel", "white", 4.7),
                             ("red", "white", 8.4), ("amber", "ink", 10.3),
                             ("green-panel", "red", 1.75)):
            high, low = sorted((light(a), light(b)), reverse=True)
            self.assertGreaterEqual((high + 0.05) / (low + 0.05), wanted - 0.06, (a, b))

    def test_both_languages_have_every_text(self):
        self.show("1-waiting")
        missing = self.browser.execute_async_script("""
            const done = arguments[0];
            import('/texts.js').then(({texts}) => {
              const keys = (value, path) => value && typeof value === 'object'
                ? Object.entries(value).flatMap(([k, v]) => keys(v, path + '.' + k)) : [path];
              const zh = keys(texts.zh, ''), en = keys(texts.en, '');
              // Values that are English words already need no English text; and a shorter one is a
              // matter of need.
              const both = (key) => !/^[.](values|doingPhone)[.]/.test(key);
              const lacking = (some, others) => some.filter(k => both(k) && !others.includes(k));
              done([...lacking(zh, en), ...lacking(en, zh)]);
            })""")
        self.assertEqual(missing, [])

    def test_every_finding_fits_at_its_size(self):
        self.show("1-waiting")
        wide = self.browser.execute_async_script("""
            const done = arguments[0];
            import('/texts.js').then(({texts}) => {
              const canvas = document.createElement('canvas').getContext('2d');
              canvas.font = '700 52px ' + getComputedStyle(document.body).fontFamily;
              const steps = ['buzzer', 'panel', 'network', 'alarm', 'rtc', 'usb', 'sata', 'rs485',
                'info', 'pmp', 'start', 'summary', 'end'];
              const facts = ['network.copper.4.link', 'network.copper.ports',
                'network.copper.selected', 'rtc.1.clock', 'usb.runs', 'usb.1.msa1.free',
                'usb.found', 'sata.esda.serial', 'sata.found', 'info.memory_frequency',
                'info.alarm_io', 'summary.minisas', 'sequence.steps', 'panel.unknown_keys',
                'panel.read_failures', 'pmp.chip.1.flash', 'exit.status', 'start.alarm_outputs',
                'rs485.bad', 'alarm.idle.inputs'];
              const each = (some, others, make) => some.flatMap(a => others.map(b => make(a, b)));
              const findings = (t) => [
                ...each(['alarm-inputs', 'alarm-outputs', 'alarm-stuck'], [[16], [3, 7]],
                  (kind, ids) => ({kind, ids})),
                ...each(['copper', 'fibre'], ['link', 'duplex', 'speed'],
                  (medium, what) => ({kind: 'port', medium, ids: ['4'], what})),
                ...['upper', 'lower'].map(id => ({kind: 'usb-rear', ids: [id]})),
                ...each(['esda', 'minisas'], ['state', 'serial'],
                  (id, what) => ({kind: 'disk', ids: [id], what})),
                {kind: 'usb'}, {kind: 'rs485'}, {kind: 'rtc'}, {kind: 'missing-steps', count: 3},
                ...Object.keys(t.reasonShorts).map(kind => ({kind})),
                ...steps.map(step => ({kind: 'missing-step', step})),
                ...each(['panel', 'buzzer'], ['answer-no', 'answer-missing', 'answer-unsure'],
                  (step, kind) => ({kind, step})),
                ...facts.map(fact => ({kind: 'wrong', fact}))];
              const bad = (words) => !words || canvas.measureText(words).width > 480;
              done(Object.values(texts).flatMap(t =>
                findings(t).map(one => t.finding(one)).filter(bad)));
            })""")
        self.assertEqual(wide, [])

    def test_sizes_of_type(self):
        size = """
            const found = [...document.querySelectorAll('#page *')].find(
              e => e.children.length === 0 && e.textContent === arguments[0]);
            return parseFloat(getComputedStyle(found).fontSize)"""
        for page, words, wanted in (("4-pass", "合格", (218, 218)), ("5-fail", "不良", (128, 142)),
                                    ("6-not-proven", "未证实", (106, 106)),
                                    ("2-running", "17", (190, 190)),
                                    ("1-waiting", "扫描下一块板", (100, 100)),
                                    ("5-fail", "45270-2648-0413", (50, 50)),
                                    ("3-question", "每个灯都亮过吗？", (68, 68)),
                                    ("5-fail", "查工装 6 号线，再扫码复测", (48, 48))):
            self.show(page)
            self.wait(lambda: words in self.shown())
            found = self.browser.execute_script(size, words)
            self.assertTrue(wanted[0] <= found <= wanted[1], (page, words, found))

    def test_a_telephone_looks_only(self):
        resize(self.browser, 390, 844)
        self.addCleanup(resize, self.browser, 1280, 800)
        self.show("3-question")
        self.assertIn("手机只看", self.shown())
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, "[data-key]"), [])
        fits = "return document.documentElement.scrollWidth <= innerWidth"
        self.assertEqual(self.browser.execute_script(fits), True)
        self.screenshot("phone")

    def test_every_number_opens_its_list(self):
        self.show("yield")
        numbers = self.browser.find_elements(By.CSS_SELECTOR, ".opens")
        self.assertGreater(len(numbers), 40)
        numbers[0].click()
        link = "#list a[href*='45270-2648-0413']"
        self.wait(lambda: self.browser.find_elements(By.CSS_SELECTOR, link), 5)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--screenshots")
    parser.add_argument("-k", action="append", default=[])
    parser.parse_args(namespace=options)
    options.build = os.path.abspath(options.build)
    arguments = [sys.argv[0], "-v"]
    for pattern in options.k:
        arguments += ["-k", pattern]
    unittest.main(argv=arguments)
