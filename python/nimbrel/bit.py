"""The operations that only a "StreamBitQPU" filter has."""

from nimbrel.simulator import FilterSimulator


class BitSimulator(FilterSimulator, filter_type="StreamBitQPU"):
    """A filter that holds one classical bit per qubit."""

    def bits(self) -> str:
        """The state of the register.

        Returns:
            One character "0" or "1" for each qubit, qubit 0 first.

        Raises:
            ValueError: If the simulator is closed.
            RuntimeError: The engine's error, for example before the first reset.
        """
        return self._state_text()
