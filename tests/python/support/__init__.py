"""Drivers of the engine's filters and helpers that several tests share."""
