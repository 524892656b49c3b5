"""What set bootenv writes is what the boot loader finds, what show bootenv lists, and what the next start finds."""

from board_session import DEFAULT_ENVIRONMENT
from texts import SUCCESS


def shown(dev):
    """What show bootenv lists."""
    return dict(line.split("=", 1) for line in dev.command("show bootenv").splitlines())


def expect_environment(dev, expected):
    assert dev.environment() == expected
    assert shown(dev) == expected


def test_variables_are_set_deleted_and_kept(dev):
    expected = dict(DEFAULT_ENVIRONMENT)
    for line, said, change in (
            ("bootbank single", "", {"bootbank": "single"}),
            ("bootcmd run cfgldrboot", "", {"bootcmd": "run cfgldrboot"}),
            ("bootdelay -1", "Setting bootdelay to -1\n", {"bootdelay": "-1"}),
            ("silent on", "", {"silent": "on"})):
        assert dev.command(f"set bootenv {line}") == said + SUCCESS
        expected |= change
        expect_environment(dev, expected)
    dev.restart()
    expect_environment(dev, expected)
    assert dev.command("set bootenv silent off") == SUCCESS
    del expected["silent"]
    expect_environment(dev, expected)
    assert dev.command("set bootenv bootdelay 10") == "Setting bootdelay to 10\n" + SUCCESS
    expected["bootdelay"] = "10"
    dev.restart()
    expect_environment(dev, expected)
