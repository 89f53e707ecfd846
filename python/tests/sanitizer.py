"""What cannot be tested under the address sanitizer."""

from __future__ import annotations

import os

import pytest

#: The sanitizer keeps freed memory, and ends the process where there is none.
SANITIZED = "libasan" in os.environ.get("LD_PRELOAD", "")
not_sanitized = pytest.mark.skipif(SANITIZED, reason="the address sanitizer has memory of its own")
