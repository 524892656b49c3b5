"""What can go wrong with a running board."""


class BoardError(Exception):
    """The board did not do what was asked of it."""


class Timeout(BoardError):
    """Something that was waited for did not come."""
