"""Runs of whole programs: outcomes, expectation values and the choice of the filter.

shots.py                sample: the outcomes of many runs, as shot_plan.py decides
expectation_values.py   expectation: Pauli sums in the state of a program
sweeps.py               sweep: one program for each point
distribution.py         chunks of work on the workers of an executor; worker.py runs there
filter_choice.py        choose_filter, by exact_records.py and term_bound.py
deferral.py             which programs are simulated once and then drawn from
bounded_calls.py        calls short enough for Ctrl-C
"""
