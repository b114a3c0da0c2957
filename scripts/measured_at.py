"""The commit at which figures were measured, for the programs that write them."""

import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def git(*words):
    done = subprocess.run(["git", *words], cwd=ROOT, capture_output=True, text=True, check=False)
    return done.stdout.strip() if done.returncode == 0 else None


def measured_at():
    """Text for a table or picture."""
    commit = git("rev-parse", "--short=12", "HEAD")
    if commit is None:
        return "measured at an unknown commit"
    changed = git("status", "--porcelain", "--", "api", "util", "webs", "examples", "plugins")
    return f"measured at commit {commit}" + (" with changes" if changed else "")
