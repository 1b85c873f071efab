"""Builders of jumps, labels and event markers.

Every builder returns one record as a `QPU_OP` array of shape (1,).
"""

from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack

__all__ = ["close_event", "jump_fwd", "label", "open_event"]


def jump_fwd(label_id: int, *, flag: int = 0) -> RecordArray:
    """Skip the records up to the label `label_id`, which may be in a later program.

    Args:
        label_id: The number of the label. A jump to 0 does nothing.
        flag: The classical condition: the read flag that must be 1 for the jump; a negative
            number means that it must be 0. 0 always jumps, -1 never jumps.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a number is not an integer.
        ValueError: If a number does not fit its 64-bit word.
    """
    return pack([Record(Opcode.JUMP_FWD, target_mask=label_id, cond_flag=flag)])


def label(label_id: int) -> RecordArray:
    """Mark where a jump to `label_id` ends.

    Args:
        label_id: The number of the label. No jump ends at 0.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If `label_id` is not an integer.
        ValueError: If `label_id` does not fit an unsigned 64-bit word.
    """
    return pack([Record(Opcode.LABEL, target_mask=label_id)])


def open_event(event_id: int) -> RecordArray:
    """Open an event. A check that fails before the event is closed lists its id.

    Args:
        event_id: The id, below 2**64 and exact as a double.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        ValueError: If `event_id` is negative or too large, or is not exact as a double.
    """
    return pack([Record(Opcode.OPEN_EVENT, angle=_id_as_double(event_id))])


def close_event(event_id: int) -> RecordArray:
    """Close the event that `open_event(event_id)` opened.

    Args:
        event_id: The id, below 2**64 and exact as a double.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        ValueError: If `event_id` is negative or too large, or is not exact as a double.
    """
    return pack([Record(Opcode.CLOSE_EVENT, angle=_id_as_double(event_id))])


def _id_as_double(event_id: int) -> float:
    # The angle word carries the id as a double, which is not exact for every integer above 2**53.
    if not 0 <= event_id < 2**64 or int(float(event_id)) != event_id:
        raise ValueError(f"event id {event_id} is not exact as a double from 0 to 2**64")
    return float(event_id)
