# Wraps CMake + Ninja. `make test` and `make run` install what is missing first.
BUILD      ?= build
ASAN_BUILD ?= build-asan
DATA       ?=
JOBS       ?= $(shell nproc)

DEB_PACKAGES := build-essential cmake ninja-build pkg-config clang-format ccache \
  libsqlite3-dev zlib1g-dev libminizip-dev libicu-dev nlohmann-json3-dev libssl-dev \
  libcurl4-openssl-dev libcpp-httplib-dev libcli11-dev libjs-jquery libghc-js-flot-data \
  libgtest-dev libgmock-dev libbenchmark-dev libdtl-dev sqlite3 chromium ffmpeg

# ccache shares compiled objects between builds and checkouts: paths are hashed
# relative to the checkout, so two worktrees of the project reuse each other's work.
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := true

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all setup build build-asan test format-check run bench format clean torture

all: build

setup:
	@missing=$$(for p in $(DEB_PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	command -v npm >/dev/null || missing="$$missing nodejs npm"; \
	if [ -n "$$missing" ]; then \
	  echo "Installing: $$missing"; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq $$missing; \
	fi

# The browser tests' packages, exactly as the lockfile says.
node_modules/.package-lock.json: package.json package-lock.json | setup
	npm ci --no-audit --no-fund --loglevel=error

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

$(ASAN_BUILD)/build.ninja:
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DRIVO_SANITIZE=ON -DRIVO_BENCH=OFF

build: setup $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

build-asan: setup $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# Tests labelled "timing" bound wall time, which the sanitizers' slowdown would make flaky. On a
# loaded machine they get a second try: one that fails twice running is a fault.
test: format-check build build-asan node_modules/.package-lock.json
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE timing
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -L timing --repeat until-pass:2
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS) -LE timing

# The C++ files changed since this branch left $(BASE) (on $(BASE) itself, those of the last
# commit), committed or not, must be formatted as `make format` leaves them.
BASE ?= main
format-check: setup
	@base=$$(git merge-base HEAD $(BASE) 2>/dev/null || echo HEAD~1); \
	[ "$$(git rev-parse HEAD)" = "$$(git rev-parse $$base)" ] && base=HEAD~1; \
	files=$$({ git diff --name-only --diff-filter=d $$base -- '*.cpp' '*.h'; \
	  git ls-files --others --exclude-standard -- '*.cpp' '*.h'; } | sort -u); \
	if [ -n "$$files" ]; then clang-format --dry-run -Werror $$files; fi

run: build
	./$(BUILD)/rivo $(if $(DATA),--data $(DATA))

# The long kill test: a driver answering cards killed 1,000 times (`make test` kills it 200).
torture: build
	cd $(BUILD) && RIVO_KILLS=1000 ./librivo_tests --gtest_filter='KillTest.*'

bench: build node_modules/.package-lock.json
	./$(BUILD)/rivo_bench
	RIVO_BIN=$(BUILD)/rivo RIVO_GEN=$(BUILD)/rivo-gen node bench/study_browser.mjs

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
