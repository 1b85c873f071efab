"""Independent models of the engine in plain Python and NumPy."""
