# SPDX-License-Identifier: GPL-2.0-only
"""Fixtures: the library of the build (ZELKAPI_BUILT_LIBRARY) in a folder of its own, and simulated cards (ZELK_CARDSIM).

Run inside scripts/netns, and not in one process with the stub: a process has one library.
"""
import json
import os
import shutil
import subprocess
from pathlib import Path
from typing import Any, Callable, Iterator, List

import pytest
import zelkapi


class Simulator:
    """zelk-cardsim with its report and recordings in a folder."""

    def __init__(self, folder: Path, *options: str) -> None:
        self.folder = folder
        command = [os.environ["ZELK_CARDSIM"], "--report", str(folder / "report.json"), "--record", str(folder / "heard")]
        self.process = subprocess.Popen([*command, *options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.lines: List[str] = []
        assert self.process.stdout is not None
        for line in self.process.stdout:
            self.lines.append(line)
            if line.startswith("card 1:"):
                break
        else:
            raise AssertionError("".join(self.lines))

    def finish(self, connected: bool = True) -> Any:
        """Ends it, and gives its report. `connected`: whether any of its calls was."""
        self.process.terminate()
        text, _ = self.process.communicate(timeout=120)
        assert self.process.returncode == (0 if connected else 2), "".join(self.lines) + text
        return json.loads((self.folder / "report.json").read_text())

    def heard(self) -> List[bytes]:
        """The A-law of each call, in the order of the calls' ends."""
        files = sorted((self.folder / "heard").glob("*.wav"), key=lambda path: path.stem.rsplit("-", 1)[1])
        return [zelkapi.read_wave(path) for path in files]


@pytest.fixture
def simulate(tmp_path: Path) -> Iterator[Callable[..., Simulator]]:
    started: List[Simulator] = []

    def start(*options: str) -> Simulator:
        started.append(Simulator(tmp_path, "--cards", "1", "--trunks", "1", "--seconds", "100", *options))
        return started[-1]

    yield start
    for simulator in started:
        simulator.process.kill()
        simulator.process.communicate()


@pytest.fixture(scope="session")
def library_path(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A copy: log and ini stand beside it."""
    return Path(shutil.copy(os.environ["ZELKAPI_BUILT_LIBRARY"], tmp_path_factory.mktemp("library")))
