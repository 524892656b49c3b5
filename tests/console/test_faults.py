"""A fixed sample of the fault campaign: calls and tools that fail, one at a time, and what is left after each."""

import pytest

import faults
from operations import OPERATIONS

pytestmark = pytest.mark.not_emulated(reason="counts the calls and looks into the process of this machine's program")

BY_NAME = {operation.name: operation for operation in OPERATIONS}
SAMPLE = {"start": 6, "serial loader": 4, "serial archive that splits clean flash": 4, "network kernel": 4,
          "flash clean": 4, "flash kill": 3, "set bootenv defaults": 3, "set console 1 9600": 3,
          "network ethernet start 10.0.0.2 255.255.255.0 10.0.0.1": 3}


@pytest.mark.parametrize("name, count", SAMPLE.items(), ids=list(SAMPLE))
def test_each_fault_is_told_and_leaves_nothing(build, name, count):
    operation = BY_NAME[name]
    reference = faults.make_reference(build, operation)
    tried = faults.without_loops(reference.faults)
    assert len(tried) >= count
    outcomes = [faults.try_fault(build, operation, reference, fault)
                for fault in tried[len(tried) // count // 2::len(tried) // count][:count]]
    assert [(outcome.fault, outcome.findings) for outcome in outcomes if outcome.findings] == []
    assert sum(outcome.verdict == "not reached" for outcome in outcomes) < count / 2


def tried_with(build, name, call, subject=""):
    """The outcome of the first fault of this call."""
    operation = BY_NAME[name]
    reference = faults.make_reference(build, operation)
    fault = next(fault for fault in reference.faults if fault.call == call and subject in fault.subject)
    return operation, reference, fault


def test_what_a_tool_could_not_do_is_told(build):
    operation, reference, fault = tried_with(build, "set bootenv silent on", "", "fw_setenv")
    assert faults.try_fault(build, operation, reference, fault).verdict == "reported"


@pytest.mark.parametrize("change, finding", [
    ({"held": {"attached"}}, "left attached"),
    ({"running": "17 "}, "left running"),
    ({"opened": ["9 /dev/mtd2"]}, "left open"),
    ({"files": ["image.rom"]}, "left in /tmp"),
    ({"terminals": []}, "ports are set otherwise"),
    ({"flash": {"environment": (("bootbank", "2"),)}}, "the boot bank is 2"),
], ids=lambda value: next(iter(value)) if isinstance(value, dict) else "")
def test_what_is_left_is_found(build, change, finding):
    state = faults.State({"environment": (("bootbank", "1"),)}, [], "", set(), [1], [])
    reference = faults.Reference([], state, "Done: SUCCESS\n", state, "Done: SUCCESS\n", state)
    findings = []
    faults.judge(faults.Fault("open", "/dev/mtd2", 0), reference, "Done: FAILURE\n", state._replace(**change), findings)
    assert len(findings) == 1 and findings[0].startswith(finding)


def test_silence_is_found(build):
    good = faults.State({"environment": (), "kernel_2": 1}, [], "", set(), [], [])
    reference = faults.Reference([], good, "Done: SUCCESS\n", good, "", good)
    findings = []
    faults.judge(faults.Fault("write", "/dev/mtd6", 0), reference, "Done: SUCCESS\n",
                 good._replace(flash={"environment": (), "kernel_2": 2}), findings)
    assert findings == ["nothing is said"]
