"""The tests import the package from this source tree.  The libraries come
from LUMR_LIBRARY_DIR when set (the CTest check sets it to the build
directory), else from the package's own search (a source tree's build/)."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir))

import numpy as np  # noqa: E402
import pytest  # noqa: E402


@pytest.fixture
def rng():
    return np.random.default_rng(20240611)


def needs(family):
    import lumr
    return pytest.mark.skipif(not lumr.available(family),
                              reason="the loaded library has no %s entry points yet" % family)
