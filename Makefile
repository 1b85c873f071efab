# Everything starts here; `make help` lists the targets. One thing alone is ever changed outside this
# directory: a target installs packages of the distribution that it needs and does not find, those that
# docs/dependencies.md names.

PYTHON ?= python3
export PYTHON
export CMAKE_BUILD_PARALLEL_LEVEL ?= 2
export CTEST_PARALLEL_LEVEL ?= $(CMAKE_BUILD_PARALLEL_LEVEL)

VENV := .venv
VENV_PYTHON := $(CURDIR)/$(VENV)/bin/python
PIP := $(VENV_PYTHON) -m pip --quiet --disable-pip-version-check
# Of the tools' modules few are ever imported: compiling them all takes as long as the rest of the installation.
INSTALL_TOOLS := $(PIP) install --no-compile
# The environment's cmake and ninja, so that every build uses the pinned ones.
CMAKE := PATH="$(CURDIR)/$(VENV)/bin:$$PATH" cmake
PYTEST = $(VENV_PYTHON) -m pytest -q --numprocesses $(CTEST_PARALLEL_LEVEL) --dist loadfile
CTEST := PATH="$(CURDIR)/$(VENV)/bin:$$PATH" ctest

# What a wheel is made of. A change in any of it builds the wheel anew and installs that one.
WHEEL_SOURCES := CMakeLists.txt pyproject.toml README.md \
  $(shell find cmake cpp python -type f -not -path '*/__pycache__/*' -not -name '*.py[co]')

# Each stamp is the time at which a step was last done.
CREATED := $(VENV)/.created
INSTALLED := $(VENV)/.installed
TEST_TOOLS := $(VENV)/.test-tools
DEV_TOOLS := $(VENV)/.dev-tools
FRAMEWORKS := $(VENV)/.frameworks
SCALE_TOOLS := $(VENV)/.scale-tools
DOC_TOOLS := $(VENV)/.doc-tools
BENCH_PEERS := $(VENV)/.bench-peers
RELEASE_TOOLS := $(VENV)/.release-tools
FUZZ_TOOLS := $(VENV)/.fuzz-tools
WHEEL := build/wheel/.built

# Length of the soak.
SOAK_SECONDS ?= 600

# Widths of bench/circuits.py. On 24 and 26 qubits a circuit takes minutes; CIRCUIT_QUBITS=24,26 runs them.
CIRCUIT_QUBITS ?= 12,16,20

# Seconds for each fuzz target.
FUZZ_SECONDS ?= 600

.PHONY: fuzz fuzz-short fuzz-build fuzz-corpus fuzz-coverage clang
.PHONY: help demo install test test-native test-python test-numpy test-doors test-frameworks check check-short
.PHONY: test-scale test-scale-short mpi
.PHONY: soak million-filters
.PHONY: test-aarch64 test-plain test-interpreters test-newer-interpreters program-fingerprints
.PHONY: format docs sanitize sanitize-address sanitize-thread sanitize-short bench gtest clean
.PHONY: hooks wheels wheel-manylinux reproducible sbom audit

help:
	@echo "make demo      install into $(VENV), run one example of each filter"
	@echo "make test      native tests, Python tests, and those of arrays under every NumPy served"
	@echo "make test-doors       tests of the doors to other frameworks, a few minutes"
	@echo "make test-frameworks  the same with all circuits and the frameworks' own tests, an hour"
	@echo "make test-scale       tests on MPI ranks; test-scale-short takes three minutes"
	@echo "make test-aarch64     native tests for AArch64, emulated"
	@echo "make test-plain       native tests on plain vectors, for any processor"
	@echo "make test-interpreters  tests on every CPython found here, under its oldest and newest NumPy"
	@echo "make test-newer-interpreters  the same on CPython 3.14 and GCC 16 of a newer Debian, as root"
	@echo "make docs      the documentation site, in build/docs/html"
	@echo "make check     warnings, layout, lint and types of all sources"
	@echo "make sanitize  tests under the address, undefined-behaviour and thread sanitizers"
	@echo "make soak      all filters for SOAK_SECONDS=600; memory and descriptors must stay level"
	@echo "make million-filters  a million filters made and deleted; memory must stay level"
	@echo "make fuzz      each fuzz target for FUZZ_SECONDS ($(FUZZ_SECONDS)); fuzz-short a minute in all"
	@echo "make bench     rates of the bit filter and of a service; the others beside other simulators"
	@echo "make format    lay out all sources as 'make check' wants them"
	@echo "make hooks     run the quick checks before each commit"
	@echo "make wheels    the wheels of a release, in the images of manylinux; in dist"
	@echo "make clean     remove everything that these targets made"
	@echo "in parts:      test-native test-python test-numpy"
	@echo "               check-short, without the static analyzer"
	@echo "               sanitize-address sanitize-thread; sanitize-short takes two minutes"
	@echo "of a release:  wheel-manylinux reproducible sbom audit"

demo: $(INSTALLED)
	$(VENV_PYTHON) examples/adder.py
	$(VENV_PYTHON) examples/phase_estimation.py
	$(VENV_PYTHON) examples/factor_pairs.py
	$(VENV_PYTHON) examples/surface_code.py
	$(VENV_PYTHON) examples/remote.py

install: $(INSTALLED)

test: test-native test-python test-numpy

# Release: the arithmetic that ships is the arithmetic that is tested.
test-native: $(TEST_TOOLS) gtest
	$(call build,release)
	$(CTEST) --preset release

# The stored results of tests/native/processors, anew. Run it when a change is meant to change them.
program-fingerprints: $(TEST_TOOLS) gtest
	$(call configure,release)
	$(CMAKE) --build --preset release --target nimbrel_program_fingerprints
	cd tests/native/processors && for list in programs:program_fingerprints special:special_fingerprints \
	  any_angle:any_angle_amplitudes; do $(CURDIR)/build/release/tests/native/nimbrel_program_fingerprints \
	  $${list%:*} >$${list#*:}.inc || exit 1; done

# The same native tests for AArch64, cross-compiled and emulated.
test-aarch64: $(TEST_TOOLS)
	tools/ensure_aarch64.sh
	$(call build,aarch64)
	$(CTEST) --preset aarch64

# The native tests on plain vectors, which need no instruction set but the family's.
test-plain: $(TEST_TOOLS) gtest
	$(call build,plain)
	$(CTEST) --preset plain

# All tests that need no other framework, under the newest NumPy.
test-python: $(INSTALLED) $(TEST_TOOLS)
	$(PYTEST) --ignore tests/python/frameworks --ignore tests/python/scale

# The doors to other frameworks: what takes a few minutes.
test-doors: $(FRAMEWORKS)
	$(PYTEST) tests/python/frameworks

# The same with all circuits of MQT Bench and PennyLane's own tests of a device.
test-frameworks: $(FRAMEWORKS)
	$(PYTEST) -m "slow or not slow" tests/python/frameworks

# Programs on MPI ranks, more of them than cores. One launch at a time: ranks wait for each other.
test-scale: $(INSTALLED) $(SCALE_TOOLS) mpi
	$(VENV_PYTHON) -m pytest -q -m "slow or not slow" tests/python/scale

test-scale-short: $(INSTALLED) $(SCALE_TOOLS) mpi
	$(VENV_PYTHON) -m pytest -q tests/python/scale

# The documentation site, in build/docs/html. Notebooks are run; warnings are errors.
docs: $(INSTALLED) $(DOC_TOOLS)
	rm -rf build/docs
	$(VENV_PYTHON) -m sphinx --quiet --fail-on-warning --keep-going docs build/docs/html
	$(VENV_PYTHON) tools/check_doc_links.py build/docs/html

# The tests of arrays, under each older NumPy that is served.
test-numpy: $(WHEEL)
	tools/numpy_matrix.sh build/wheel/*.whl

# The tests of the module's boundary on every CPython that is found here.
test-interpreters: $(CREATED)
	tools/interpreters.sh

# The same with a CPython of a newer Debian. Needs root.
test-newer-interpreters:
	tools/debian_interpreters.sh python3.14

# The preset is configured for its compile database alone; warnings are errors in the asan preset. Under
# the thread sanitizer GCC 12 warns of what is not there.
check: $(INSTALLED) $(DEV_TOOLS) gtest
	$(call configure,dev)
	tools/lint.sh $(VENV_PYTHON)

# What has time at every change.
check-short: $(INSTALLED) $(DEV_TOOLS) gtest
	$(call configure,dev)
	tools/lint.sh $(VENV_PYTHON) short

format: $(DEV_TOOLS)
	find cpp tests/native tests/fuzz -name '*.cpp' -o -name '*.h' | xargs $(VENV)/bin/clang-format -i
	$(VENV)/bin/ruff format --quiet .
	$(VENV)/bin/ruff check --quiet --fix-only .

sanitize: sanitize-address sanitize-thread

sanitize-address: $(INSTALLED) $(TEST_TOOLS) gtest
	$(call build,asan)
	$(CTEST) --preset asan
	tools/asan_pytest.sh $(VENV_PYTHON) build/asan/lib

sanitize-thread: $(TEST_TOOLS) gtest
	$(call build,tsan)
	$(CTEST) --preset tsan

# What has time at every change: the module's boundary on the fuzz targets' build, and what the worker
# threads share. `make sanitize` runs all native tests, and most Python tests.
sanitize-short: $(TEST_TOOLS) fuzz-build gtest
	$(CMAKE) --build build/fuzz --target _lib_nb_sim
	tools/asan_pytest.sh $(VENV_PYTHON) build/fuzz/lib @tests/python/lists/boundary.txt
	$(call configure,tsan)
	$(CMAKE) --build --preset tsan --target nimbrel_dense_blocks_tests
	$(CTEST) --preset tsan --label-regex '^dense/blocks$$'

fuzz: fuzz-build
	tools/fuzz.sh $(VENV_PYTHON) build/fuzz $(FUZZ_SECONDS)

# A minute on two processors, after every input of the corpora once.
fuzz-short: fuzz-build
	FUZZ_SEED=1 tools/fuzz.sh $(VENV_PYTHON) build/fuzz 12

fuzz-build: $(FUZZ_TOOLS) clang
	$(call build,fuzz)

# Minimises what `make fuzz` has grown, for the repository.
fuzz-corpus: fuzz-build
	tools/merge_corpora.sh $(VENV_PYTHON) build/fuzz

# Lines and branches of cpp/ that the corpora, the native tests and the tests of the module reach.
fuzz-coverage: $(INSTALLED) $(TEST_TOOLS) clang gtest
	$(call build,coverage)
	tools/coverage.sh $(VENV_PYTHON) build/coverage

bench: $(INSTALLED) $(TEST_TOOLS) $(BENCH_PEERS)
	$(VENV_PYTHON) bench/bit.py
	$(VENV_PYTHON) bench/dense.py
	$(VENV_PYTHON) bench/circuits.py --qubits $(CIRCUIT_QUBITS)
	$(VENV_PYTHON) bench/sparse.py
	$(VENV_PYTHON) bench/clifford.py
	$(CMAKE) -S . -B build/bench -G Ninja --log-level=WARNING -DNIMBREL_BUILD_BENCH=ON \
	  -DNIMBREL_BUILD_TESTS=OFF
	$(CMAKE) --build build/bench --target nimbrel_tableau_bench
	build/bench/bench/native/nimbrel_tableau_bench
	$(VENV_PYTHON) bench/checks.py
	$(VENV_PYTHON) bench/connect.py
	$(VENV_PYTHON) bench/doors/building.py
	$(VENV_PYTHON) bench/doors/sampling.py
	$(VENV_PYTHON) bench/doors/qiskit_conversion.py
	$(VENV_PYTHON) bench/doors/qiskit_primitives.py

hooks: $(DEV_TOOLS)
	$(VENV)/bin/pre-commit install

# Needs Docker, or Podman with CIBW_CONTAINER_ENGINE=podman.
wheels: $(RELEASE_TOOLS)
	$(VENV_PYTHON) -m cibuildwheel --platform linux --archs auto64 --output-dir dist

# One wheel for this interpreter, where no image is at hand.
wheel-manylinux: $(RELEASE_TOOLS)
	tools/manylinux_wheel.sh $(VENV_PYTHON) dist

# Two builds give the same bytes.
reproducible: $(CREATED)
	tools/reproducible_wheel.sh $(VENV_PYTHON)

# The bill of materials, build/nimbrel.cdx.json.
sbom: $(RELEASE_TOOLS)
	tools/sbom.sh $(VENV_PYTHON) build/wheel/*.whl build/nimbrel.cdx.json

# Known vulnerabilities of what an installation needs. Asks a service of PyPI.
audit: $(RELEASE_TOOLS)
	$(VENV_PYTHON) -m pip_audit --strict --desc off .

# Uses of all filters and of a service for a given time. docs/reliability.md has the criterion.
soak: $(INSTALLED)
	$(VENV_PYTHON) bench/soak/soak.py --seconds $(SOAK_SECONDS)

million-filters: $(INSTALLED)
	$(VENV_PYTHON) bench/soak/many_filters.py

clean:
	rm -rf build $(VENV) .hypothesis .mypy_cache .pytest_cache .ruff_cache
	find python examples bench tests -type d -name __pycache__ -prune -exec rm -rf {} +

gtest:
	@tools/ensure_gtest.sh

mpi:
	@tools/ensure_mpi.sh

clang:
	@tools/ensure_clang.sh

# $(call configure,PRESET): with NumPy's headers from the environment.
define configure
$(CMAKE) --preset $(1) --log-level=WARNING -Wno-unused-cli -DPython_EXECUTABLE=$(VENV_PYTHON)
endef

# $(call build,PRESET): configures and builds one preset.
define build
$(call configure,$(1))
$(CMAKE) --build --preset $(1)
endef

$(CREATED):
	$(PYTHON) -m venv $(VENV)
	@touch $@

$(WHEEL): $(WHEEL_SOURCES) | $(CREATED)
	rm -rf $(@D)
	$(PIP) wheel --no-deps --wheel-dir $(@D) .
	@touch $@

# pip takes a wheel of the installed version for installed, so the old one has to go first.
$(INSTALLED): $(WHEEL)
	@$(PIP) --quiet uninstall --yes nimbrel
	$(PIP) install build/wheel/*.whl
	@touch $@

$(TEST_TOOLS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[test,native]"
	@touch $@

$(DEV_TOOLS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[dev]"
	@touch $@

$(FRAMEWORKS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[test-frameworks,docs]"
	@touch $@

$(SCALE_TOOLS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[test-scale]"
	@touch $@

$(DOC_TOOLS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[docs]"
	@touch $@

$(RELEASE_TOOLS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[release]"
	@touch $@

$(FUZZ_TOOLS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) "$$(echo build/wheel/*.whl)[native,fuzz]"
	@touch $@

$(BENCH_PEERS): pyproject.toml | $(INSTALLED)
	$(INSTALL_TOOLS) --only-binary :all: "$$(echo build/wheel/*.whl)[bench]"
	@touch $@
