#!/usr/bin/env python3
"""Tests one board from a test framework, by q7-station run --json. Python 3 alone is needed:

    Q7_SERIAL=45270-2648-0413 Q7_OPERATOR=W1032 Q7_PLAN=plans/healthy.toml \
        Q7_BOARD='ssh root@10.0.0.7 q7-agent run -- q7' \
        Q7_ANSWERS='buzzer=yes panel-leds=yes panel-keys=yes' python3 -m unittest -v docs/board_test.py

A FAIL of the station is a failed test, NOT PROVEN and INCOMPLETE are errors: neither says that the
board is bad, and neither lets it ship.
"""
import json
import os
import shlex
import subprocess
import unittest

PASS, FAIL, BAD_USE, NOT_PROVEN, INCOMPLETE = range(5)  # statuses of q7-station run


class NotTested(Exception):
    """The station has no answer: not proven, incomplete, or no attempt at all."""


def run_attempt():
    """Runs one attempt, which takes a minute or more: the judgement as an object."""
    words = [os.environ.get("Q7_STATION", "q7-station"), "run", "--json",
             "--plan", os.environ["Q7_PLAN"], "--serial", os.environ["Q7_SERIAL"],
             "--operator", os.environ["Q7_OPERATOR"], "--journals", os.environ.get("Q7_JOURNALS", "journals")]
    # What a person saw and heard on this board. A question without an answer is not proven.
    for answer in os.environ.get("Q7_ANSWERS", "").split():
        words += ["--answer", answer]
    words += ["--"] + shlex.split(os.environ["Q7_BOARD"])
    # Without a time limit: the plan has one for each kind of wait, and for the whole run.
    done = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8")
    if done.returncode not in (PASS, FAIL, NOT_PROVEN, INCOMPLETE) or not done.stdout:
        raise NotTested(f"status {done.returncode}: {done.stderr[-1000:]}")
    judgement = json.loads(done.stdout.splitlines()[-1])
    # Status and object must agree: neither alone makes a board pass.
    if (done.returncode == PASS) != (judgement["verdict"] == "PASS"):
        raise NotTested(f"status {done.returncode}, but {judgement['verdict']}")
    return judgement


def in_words(reason):
    """One reason of an item, such as: alarm.good 4, wanted 5 (line 57 of the journal)."""
    said = " ".join(str(reason[key]) for key in ("fact", "value", "text") if reason.get(key))
    wanted = f", wanted {reason['wanted']}" if reason.get("wanted") else ""
    return f"{said or reason['code']}{wanted} (line {reason.get('line')} of the journal)"


class Board(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.judgement = run_attempt()

    def test_items(self):
        for item in self.judgement["items"]:
            with self.subTest(item["name"]):
                why = "; ".join(in_words(reason) for reason in item["reasons"])
                if item["verdict"] in ("NOT PROVEN", "INCOMPLETE"):
                    raise NotTested(f"{item['verdict']}: {why}")
                if item["verdict"] != "PASS":
                    self.fail(why)

    def test_may_ship(self):
        judgement = self.judgement
        causes = [cause["title"]["en"] for cause in judgement["causes"]]
        if judgement["verdict"] in ("NOT PROVEN", "INCOMPLETE"):
            raise NotTested(f"{judgement['verdict']} {judgement['id']}")
        if judgement["verdict"] != "PASS":
            self.fail(f"{judgement['verdict']} {judgement['id']}, likely causes: {causes}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
