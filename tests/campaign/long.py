#!/usr/bin/env python3
"""
The board tests that are too long for ./test: whole firmware over the serial line in each form, the largest root file
system, some power cuts. Words go to pytest. About half an hour on two cores.

    tests/campaign/long.py
"""

import os
import sys
from pathlib import Path

os.chdir(Path(__file__).resolve().parents[2])
os.execv("/usr/bin/python3", ["python3", "-m", "pytest", "-q", "-n", "4", "-p", "no:cacheprovider", "-m", "long", "tests/board",
                              *sys.argv[1:]])
