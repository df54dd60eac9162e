"""What ends a run, or an item."""

from __future__ import annotations

from .._error import Error


class InterruptedRunError(Error):
    """A run that ended early. What is complete stays; the same call again goes on from there."""


class StaleRunError(Exception):
    """Another run has begun in the same output; what this one does no longer counts."""
