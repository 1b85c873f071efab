"""The hosted checks run what `.ci/run` runs, and every target that they name exists."""

import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[3]
WORKFLOW = ROOT / ".github" / "workflows" / "ci.yml"


def made_by(path):
    return set(re.findall(r"\bmake ([a-z-]+)", path.read_text(encoding="utf-8")))


def named_at_night(workflow):
    [targets] = re.findall(r"target: \[(.*)\]", workflow.read_text(encoding="utf-8"))
    return set(targets.split(", "))


def test_they_run_all_that_a_change_must_pass():
    wanted = made_by(ROOT / ".ci" / "run")
    assert wanted
    assert wanted <= made_by(WORKFLOW)


def test_their_targets_exist():
    makefile = (ROOT / "Makefile").read_text(encoding="utf-8")
    targets = set(re.findall(r"^([a-z][a-z0-9-]*):", makefile, re.MULTILINE))
    assert made_by(WORKFLOW) | named_at_night(WORKFLOW) <= targets
