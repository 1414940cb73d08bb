# SPDX-License-Identifier: GPL-2.0-only
"""Worlds for the tests, ended with them."""
import pytest
from world import World


@pytest.fixture
def make_world(tmp_path):
    made = []

    def make(**options):
        made.append(World(tmp_path, **options))
        return made[-1]

    yield make
    for each in made:
        each.end()
