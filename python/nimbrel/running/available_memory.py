"""How much memory the process may still use."""

from pathlib import Path

__all__ = ["available_memory"]

_UNLIMITED = 2**63
_GROUPS = (
    ("/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory.current"),
    (
        "/sys/fs/cgroup/memory/memory.limit_in_bytes",
        "/sys/fs/cgroup/memory/memory.usage_in_bytes",
    ),
)


def available_memory() -> int:
    """The free memory of the machine or of its container, whichever is smaller.

    Returns:
        Bytes; a huge number if the system does not tell.
    """
    free = _UNLIMITED
    try:
        for line in Path("/proc/meminfo").read_text(encoding="ascii").splitlines():
            if line.startswith("MemAvailable:"):
                free = int(line.split()[1]) * 1024
    except OSError:
        pass
    for limit, usage in _GROUPS:
        try:
            rest = int(Path(limit).read_text("ascii")) - int(Path(usage).read_text("ascii"))
        except (OSError, ValueError):  # no such group, or no limit: "max"
            continue
        free = min(free, max(rest, 0))
    return free
