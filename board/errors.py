"""What can go wrong with a running board."""


class BoardError(Exception):
    """The board did not do what was asked of it."""


class Timeout(BoardError):
    """Something that was waited for did not come. `left`: bytes that a sender was left with."""

    def __init__(self, text, left=0):
        super().__init__(text)
        self.left = left
