"""The tests that can notice a change of the program, in layers, the quick ones first."""
import dataclasses
import fnmatch
import os

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, os.environ.get("HK_MUTATION_FOLDER", "build/mutation"))
COPY = os.path.join(WORK, "source")
BUILD = os.path.join(WORK, "build")
BOARD = os.path.join(ROOT, "build/host/hk_board")

# Each is a program of a second or two.
UNIT_TESTS = ("call_trace_tests", "unit_tests", "option_walk_tests", "kernel_speed_tests")
OTHER_TARGETS = ("hk_stress", "hk_ctl", "hk_results", "board_tests", "serial_cable_tests", "ctl_tests",
                 "results_tests")
# Cases of ctl_tests that need the board.
CTL_ON_BOARD = ("Release", "Hold", "Stop", "Runs", "Clean", "Rights", "Watch", "Usage")


@dataclasses.dataclass
class Concern:
    """The tests that can notice a change in some files, the quick ones first."""
    files: str  # a pattern; the first that matches is taken
    cases: str  # names of ctest
    runs: str = ""  # entries of tests/matrix, run before the cases
    programs: tuple = UNIT_TESTS
    slow_cases: str = ""
    documents: str = ""  # their commands


CONCERNS = (
    Concern("ctl/*", f"^({'|'.join(CTL_ON_BOARD)})\\.|counter_meanings_in",
            programs=(f"ctl_tests --gtest_filter=-{':'.join(f'{name}.*' for name in CTL_ON_BOARD)}",),
            documents="README.md man/hk_ctl.8"),
    Concern("results/*", "page_of_results_in_a_browser|^results_", "--sample", ("results_tests",),
            documents="README.md man/hk_results.1"),
    Concern("serial/*", "[Ss]erial|HonestLine|LineSpeeds|FullTable|Runs.(receiver|crossover)",
            "receiver.none* crossover.none*"),
    Concern("fio/spi/*", "Spi|FullTable|Runs.spi_", "spi_loop.none* spi_device.none*"),
    Concern("fio/*", "FioLoop|FullTable|Runs.(fio|spi)_loop", "fio_loop.none* spi_loop.none*"),
    Concern("storage/*", "FileSystem|FailedSetUp|FullTable|Runs.(files|file_copy|dram)",
            "files.none* file_copy.store_full*"),
    Concern("panel/*", "Panel|FullTable"),
    Concern("*", "KernelFacts|^Runs|StartUp|Timer|Stopping|FailedSetUp|Processes|StandardDescriptors"
                 "|SharedMemory|SystemLog", "*.none*",
            slow_cases="FileSystem|[Ss]erial|LineSpeeds|FioLoop|Spi|Panel|FullTable|Requests|ExpectedRuns"),
)


@dataclasses.dataclass(eq=False)
class Layer:
    """Tests that run together: a shell command, what it needs, and how long it may take."""
    name: str
    targets: tuple
    command: str
    limit_s: float = 1200


def expected_runs(names):
    options = f"--board {BOARD} --program {BUILD}/hk_stress --results {BUILD}/hk_results --jobs 2"
    return f"set -f; {COPY}/tests/matrix/expected_runs.py {options} {names}"


def ctest(names):
    # dram.limits has a limit of memory that fits the optimised program; a browser reserves terabytes.
    memory = "ulimit -S -v unlimited; " if "browser" in names else ""
    return f"{memory}ctest --test-dir {BUILD} -j2 --stop-on-failure --no-tests=error -R '{names}' -E dram.limits"


def layers_of(concern):
    """The layers of tests, the quickest first."""
    programs = tuple(program.split()[0] for program in concern.programs)
    targets = (*UNIT_TESTS, *OTHER_TARGETS)
    yield Layer("unit tests", programs, " && ".join(f"{BUILD}/{each}" for each in concern.programs))
    if concern.runs:
        yield Layer("runs without a fault", targets, expected_runs(concern.runs))
    yield Layer("cases", targets, ctest(concern.cases))
    if concern.slow_cases:
        yield Layer("slow cases", targets, ctest(concern.slow_cases))
    if concern.documents:
        yield Layer("documents", targets, f"cd {COPY}; tools/document_commands.py {BUILD} {concern.documents}")


LAYERS = {concern.files: tuple(layers_of(concern)) for concern in CONCERNS}


def layers_for(path):
    return next(layers for files, layers in LAYERS.items() if fnmatch.fnmatch(path, files))
