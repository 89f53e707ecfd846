"""What cannot be tested under the address sanitizer."""

from __future__ import annotations

import os

import pytest

#: The sanitizer keeps freed memory, and ends the process where there is none.
not_sanitized = pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""), reason="the address sanitizer has memory of its own"
)
