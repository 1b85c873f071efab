"""Runs of whole programs: outcomes, expectation values and the choice of the filter.

shots.py                sample: the outcomes of many runs
expectation_values.py   expectation: Pauli sums in the state of a program
filter_choice.py        choose_filter, by exact_records.py and term_bound.py
deferral.py             which programs are simulated once and then drawn from
bounded_calls.py        calls short enough for Ctrl-C
"""
