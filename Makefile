# One-command loop. The first run sets everything up under .setup/ and build/; later runs only do
# what has changed. The wheel and the C++ tests come from one build tree, so that what is tested is
# what is shipped.

SETUP := .setup
BUILD := build/wheel
SOURCES := $(shell find CMakeLists.txt pyproject.toml cmake platform src tools tests/cpp python \
	-not -path '*/__pycache__*' -not -path '*/.mypy_cache*')
CXX_FILES = $(shell find platform src tools tests/cpp -name '*.h' -o -name '*.cpp')
FIRST_PYTHON = $(SETUP)/first/bin/python

.PHONY: demo test bench format lint clean

demo: $(SETUP)/wheel
	@scripts/set_up_environments 1
	@$(FIRST_PYTHON) examples/tour.py

test: $(SETUP)/wheel
	@scripts/set_up_environments
	@scripts/run_tests $(BUILD)

bench: $(SETUP)/wheel
	@scripts/set_up_environments 1
	@$(FIRST_PYTHON) bench/run.py

format: $(SETUP)/lint-tools
	@clang-format -i $(CXX_FILES)

lint: $(SETUP)/lint-tools $(SETUP)/wheel
	@scripts/set_up_environments 1
	@scripts/check_layers
	@clang-format --dry-run -Werror $(CXX_FILES)
	@$(FIRST_PYTHON) -m mypy python bench
	@run-clang-tidy -quiet -p $(BUILD) '$(CURDIR)/(platform|src|tools|tests)/'

clean:
	@rm -rf $(SETUP) build dist

$(SETUP)/system: scripts/install_system_packages
	@scripts/install_system_packages
	@mkdir -p $(SETUP) && touch $@

$(SETUP)/lint-tools: scripts/install_system_packages
	@scripts/install_system_packages clang-format clang-tidy
	@mkdir -p $(SETUP) && touch $@

$(SETUP)/wheel: $(SETUP)/system scripts/build_wheel $(SOURCES)
	@scripts/build_wheel $(BUILD)
	@touch $@
