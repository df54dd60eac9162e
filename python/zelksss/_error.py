"""The package's error."""

from __future__ import annotations


class Error(ValueError):
    """A value, an array or a file that cannot be used.

    Parameters
    ----------
    text : str
        What a person has to know: what is wrong where, and what was expected.
    field, actual, expected : str, optional
        The argument or parameter, what it was, and what it may be; None where only the text says
        so, as about files.

    Attributes
    ----------
    field, actual, expected : str or None
    """

    field: str | None
    actual: str | None
    expected: str | None

    def __init__(
        self,
        text: str,
        field: str | None = None,
        actual: str | None = None,
        expected: str | None = None,
    ) -> None:
        super().__init__(text)
        self.field = field
        self.actual = actual
        self.expected = expected
