"""Independent truths: what the engine must answer, written out in plain Python and NumPy."""
