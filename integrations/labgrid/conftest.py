"""What the tests of a lab have at hand."""

import pytest


@pytest.fixture
def shell(target):
    """The device of the environment, at the prompt of its recovery shell."""
    return target.get_driver("KestoDriver")
