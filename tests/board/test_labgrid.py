"""The driver for labgrid at a virtual board: the example, run as a lab runs it, and a reset."""

import os
import subprocess
import sys

import real_images
from board_session import PATIENCE, ROOT
from line_socket import LineSocket

HOME = ROOT / "integrations" / "labgrid"
ENVIRONMENT = """
targets:
  main:
    resources:
      UnixSerialPort:
        path: {path}
    drivers:
      KestoDriver:
        limit: {limit}
tools:
  kesto: {kesto}
images:
  firmware: {image}
imports:
  - {driver}
"""
RESET = """
def test_device_comes_back_after_a_reset(shell):
    shell.reset(wait=True)
    assert shell.get_status() == 1
"""


def lab(directory, environment, *tests):
    """Runs tests with labgrid's plugin, away from the settings of this tier."""
    words = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-c", os.devnull, f"--rootdir={HOME}", "--lg-env",
             environment, *tests]
    done = subprocess.run(words, cwd=directory, capture_output=True, text=True, timeout=10 * PATIENCE, check=False)
    assert done.returncode == 0 and " passed" in done.stdout, done.stdout + done.stderr


def test_an_image_is_installed_and_the_device_reset(own_board, tmp_path):
    dev = own_board()
    dev.boot()
    (tmp_path / "image.rom").write_bytes(image := real_images.build(("kernel", real_images.SMALL_KERNEL)))
    (tmp_path / "environment.yaml").write_text(ENVIRONMENT.format(
        path=tmp_path / "line", limit=int(PATIENCE), kesto=real_images.KESTO, image=tmp_path / "image.rom",
        driver=HOME / "kesto_driver.py"))
    (tmp_path / "conftest.py").write_text((HOME / "conftest.py").read_text())
    (tmp_path / "test_reset.py").write_text(RESET)
    with LineSocket(dev.board, 1, tmp_path / "line"):
        lab(tmp_path, "environment.yaml", HOME / "test_install.py")
        dev.expect_flash(kernel_2=image)
        assert dev.environment()["bootbank"] == "2"
        lab(tmp_path, "environment.yaml", "test_reset.py")
        assert dev.board.kernel_log.output.count(b"Linux version") == 2
    dev.kill()  # another process is the shell now, and kesto has typed: nothing that a session would look at
