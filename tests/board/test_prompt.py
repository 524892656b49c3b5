"""The shell with a kernel, a terminal line and tools under it: Ctrl-C, reset, and the commands that show the system."""

import re

import real_images
from board_session import PROTECTED
from session import plain
from texts import SUCCESS


def test_ctrl_c_does_not_tear_an_erase(dev):
    dev.board.flash_fill("kernel_2", b"\0" * 0x800000)
    dev.board.slow("erase", "kernel_2", 0.03)
    dev.type("flash kill 2 kernel")
    dev.wait_operation("erase", "kernel_2", after=dev.board.flash_operations()["kernel_2"]["erase"] + 10)
    for _ in range(3):
        dev.interrupt()
    assert dev.text_until_prompt().endswith(SUCCESS)
    assert not dev.flash("kernel_2")


def test_reset_boots_the_device_again(dev):
    environment = real_images.environment(bootdelay="5")
    dev.board.flash_fill("bootenv_1", environment)
    dev.command("verbose 5")
    dev.board.put("/tmp/until-reset", "")
    dev.board.sh("flash_unlock /dev/mtd2", check=True)
    shown = dev.reset()
    assert re.search(r"\nZentavio Solvantra Recovery Loader v3\.1\.0\.0R1 \([A-Z][a-z]{2} [ 0-9]\d \d{4} [\d:]{8}\)\n", shown)
    assert "ERROR" not in shown and "Reset Failed" not in shown
    assert dev.board.sh("ls /tmp/until-reset").status != 0, "this is not another boot"
    dev.expect_flash(bootenv_1=environment)
    dev.expect_locked(*PROTECTED)
    assert dev.command("verbose") == "verbosity is 3\n"


def test_kernel_log(dev):
    shown = dev.command("show klog")
    assert '] Creating 10 MTD partitions on "nor":\n' in shown
    assert plain(dev.board.sh("dmesg", check=True).output.encode()).startswith(shown)


def test_system(dev):
    for line in "show system", "show system anything":
        shown = dev.command(line)
        assert shown.startswith("\nMem: ") and shown.endswith("\n\n")
        top, heading, processes = shown.partition("\nPID   USER     COMMAND\n")
        assert re.search(r"^CPU: .*\nLoad average: ", top, re.M) and "top -b -n1" in top
        assert heading and re.search(rf"^ *{dev.shell_pid()} 0 +/sbin/recovery-loader$", processes, re.M)
        assert re.search(r"^ *1 0 +\{init\} /bin/sh /init$", processes, re.M)
