"""An example: firmware goes into bank 2, and the device is asked about it."""


def test_firmware_goes_into_bank_2(shell):
    record = shell.install("firmware", bank=2, erase=True, force=["no-rootfs"])
    assert record["checked"], "nothing was read back"
    banks = {bank["bank"]: bank for bank in shell.show()["banks"]}
    assert banks["2"]["active"] and banks["2"]["kernel"]["status"] == "active"
    assert "bootbank=2" in "\n".join(shell.run_check("show bootenv"))
