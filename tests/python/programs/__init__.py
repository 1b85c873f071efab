"""Generators of random programs, one module for each kind of filter."""
