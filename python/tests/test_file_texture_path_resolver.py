"""Checks of the file texture's name resolver: patterns from names, the
files a pattern finds on disk, and where each tile lies."""

import os
import tempfile
import unittest

from orvo.app.general import fileTexturePathResolver as resolver


class FindFiles(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        for name in ("t.1001.png", "t.1002.png", "t.1011.png", "t.1011.png.bak",
                     "s.5.png", "s.0005.png", "other.1001.png"):
            open(os.path.join(self.folder.name, name), "w").close()

    def tearDown(self):
        self.folder.cleanup()

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def test_tiles_of_a_pattern_are_found_and_placed(self):
        pattern = resolver.getFilePatternString(self.path("t.1002.png"), False, resolver.UDIM)
        files = resolver.findAllFilesForPattern(pattern, "None")
        self.assertEqual([os.path.basename(f) for f in files],
                         ["t.1001.png", "t.1002.png", "t.1011.png"])
        # 1001 + u + 10 v.
        self.assertEqual(resolver.computeUVForFiles(files, pattern), [(0, 0), (1, 0), (0, 1)])

    def test_frames_fill_in_with_and_without_padding(self):
        self.assertEqual(resolver.findAllFilesForPattern(self.path("s.<f>.png"), 5),
                         [self.path("s.5.png")])
        self.assertEqual(resolver.findAllFilesForPattern(self.path("s.<f4>.png"), 5),
                         [self.path("s.0005.png")])
        self.assertEqual(resolver.findAllFilesForPattern(self.path("s.<f>.png"), 6), [])

    def test_a_name_with_tokens_is_its_own_pattern(self):
        self.assertEqual(resolver.getFilePatternString("a.<UDIM>.png", True, 3), "a.<UDIM>.png")
        self.assertEqual(resolver.getFilePatternString("", True, 3), "")


if __name__ == "__main__":
    unittest.main()
