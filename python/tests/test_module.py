"""The orvo extension: scenes, plugs, node types, shading, compile reports,
image names and renders, each checked against values worked out by hand."""

import inspect
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

# Builds that cannot load a compiled extension into this interpreter (the
# sanitizer builds) set this and keep only the pure-Python tests.
SKIP = os.environ.get("ORVO_PYTHON_SKIP_EXTENSION")

if not SKIP:
    import orvo

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = os.path.join(os.path.dirname(os.path.dirname(HERE)), "tests")

# A lambert of colour (0.5, 0.25, 1), ambient 0.2, incandescence (0.1, 0, 0)
# and diffuse 0.8 under one directional light of intensity 2 whose
# direction to the light is +Y.
LAMBERT_SUN = os.path.join(TESTS, "scenes", "materials", "lambert_sun.qsl")
# 1 - checker(uv): black where u and v are on the same side of 0.5.
CHECKER = os.path.join(TESTS, "scenes", "checker_shade.qsl")


def next_line():
    """The line after the caller's."""
    return inspect.currentframe().f_back.f_lineno + 1


def read_bmp(path):
    """(width, height, rows of (r, g, b) tuples, top row first) of a BMP."""
    with open(path, "rb") as f:
        data = f.read()
    offset = struct.unpack_from("<I", data, 10)[0]
    width, height = struct.unpack_from("<ii", data, 18)
    bits = struct.unpack_from("<H", data, 28)[0]
    step = bits // 8
    stride = (width * step + 3) // 4 * 4
    rows = []
    for y in range(abs(height)):
        start = offset + y * stride
        row = []
        for x in range(width):
            b, g, r = data[start + x * step : start + x * step + 3]
            row.append((r, g, b))
        rows.append(row)
    if height > 0:  # stored bottom-up
        rows.reverse()
    return width, abs(height), rows


@unittest.skipIf(SKIP, "the extension is not loaded in this build")
class ScenesAndPlugs(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="orvo_python_")

    def tearDown(self):
        shutil.rmtree(self.dir)

    def write(self, name, text):
        path = os.path.join(self.dir, name)
        with open(path, "w") as f:
            f.write(text)
        return path

    def test_plugs_read_and_set_python_values(self):
        scene = orvo.Scene()
        clay = scene.create("lambert", "clay")
        self.assertEqual(clay.name, "clay")
        self.assertEqual(clay.type, "lambert")
        clay["color"] = (0.25, 0.5, 1)
        self.assertEqual(clay["color"], (0.25, 0.5, 1.0))
        self.assertIsInstance(clay["color"][2], float)
        clay["colorR"] = 0.75
        self.assertEqual(clay["color"], (0.75, 0.5, 1.0))
        # 1 - input, through a connection: (0.25, 0.5, 0) from (0.75, 0.5, 1).
        inv = scene.create("reverse", "inv")
        scene.connect("clay.color", inv.plug("input"))
        self.assertEqual(inv["output"], (0.25, 0.5, 0.0))
        scene.disconnect((clay, "color"), (inv, "input"))
        inv["input"] = (1, 0, 0.5)
        self.assertEqual(inv["output"], (0.0, 1.0, 0.5))
        # Booleans, integers and strings.
        globals_ = scene.node("defaultRenderGlobals")
        globals_["animation"] = True
        self.assertIs(globals_["animation"], True)
        resolution = scene.node("defaultResolution")
        resolution["width"] = 320
        self.assertEqual(resolution["width"], 320)
        self.assertIsInstance(resolution["width"], int)
        globals_["imageFilePrefix"] = 'a "quoted" name'
        self.assertEqual(globals_["imageFilePrefix"], 'a "quoted" name')

    def test_nodes_by_type_in_creation_order(self):
        scene = orvo.Scene()
        # A new scene has the default material already.
        before = [n.name for n in scene.nodes("lambert")]
        for name in ("b", "a"):
            scene.create("lambert", name)
        scene.create("reverse", "r")
        self.assertEqual([n.name for n in scene.nodes("lambert")], before + ["b", "a"])
        everything = [n.name for n in scene.nodes()]
        self.assertEqual(everything[-3:], ["b", "a", "r"])
        self.assertEqual(scene.node("a"), scene.nodes("lambert")[-1])
        # A shape under its transform.
        scene.create("transform", "t")
        shape = scene.create("mesh", "tShape", parent="t")
        self.assertEqual(shape.type, "mesh")
        with self.assertRaises(orvo.SceneError):
            scene.nodes("lambrt")

    def test_errors_carry_file_line_and_message(self):
        path = self.write("typo.qsl", "node lambert a\n\nset a.colr 1 2 3\n")
        with self.assertRaises(orvo.SceneError) as caught:
            orvo.Scene.load(path)
        self.assertEqual(caught.exception.file, path)
        self.assertEqual(caught.exception.line, 3)
        self.assertIn("colr", caught.exception.message)
        self.assertTrue(str(caught.exception).startswith(path + ":3: error: "))

        missing = os.path.join(self.dir, "nope.qsl")
        with self.assertRaises(orvo.SceneError) as caught:
            orvo.Scene.load(missing)
        self.assertEqual((caught.exception.file, caught.exception.line), (missing, 0))

        # A failed script leaves nothing behind.
        scene = orvo.Scene()
        before = scene.nodes()
        with self.assertRaises(orvo.SceneError) as caught:
            scene.run("node lambert a\nnode lambert b\nconnect a.outColor b.nope\n", "edit.qsl")
        self.assertEqual((caught.exception.file, caught.exception.line), ("edit.qsl", 3))
        self.assertEqual(scene.nodes(), before)

        # A refused call names the calling line of this file.
        clay = scene.create("lambert", "clay")
        line = next_line()
        with self.assertRaises(orvo.SceneError) as caught:
            clay["color"] = (1, 2)
        self.assertEqual(caught.exception.file, __file__)
        self.assertEqual(caught.exception.line, line + 1)
        self.assertIn("color", caught.exception.message)
        for call in (lambda: clay["nope"], lambda: scene.node("nobody"),
                     lambda: scene.create("nosuchtype", "x")):
            with self.assertRaises(orvo.SceneError) as caught:
                call()
            self.assertEqual(caught.exception.file, __file__)

    def test_saved_scene_loads_with_the_same_values_and_connections(self):
        scene = orvo.Scene()
        scene.run("node lambert clay\nset clay.color 0.5 0.25 1\nnode reverse inv\n"
                  "connect clay.color inv.input\n")
        path = os.path.join(self.dir, "saved.qsl")
        scene.save(path)
        self.assertEqual(os.listdir(self.dir), ["saved.qsl"])  # no temporary left
        again = orvo.Scene.load(path)
        self.assertEqual(again.path, path)
        self.assertEqual(again.node("inv")["output"], (0.5, 0.75, 0.0))
        with self.assertRaises(orvo.SceneError):
            scene.save(os.path.join(self.dir, "no", "such", "folder.qsl"))

    def test_node_types_are_what_the_tool_prints(self):
        types = orvo.node_types()
        reverse = next(t for t in types if t["type"] == "reverse")
        self.assertEqual(reverse["iffTag"], "RRVS")
        inp = next(a for a in reverse["attributes"] if a["long"] == "input")
        self.assertEqual((inp["short"], inp["class"], inp["default"]),
                         ("i", "Tattribute3Float", [0, 0, 0]))
        tool = os.environ.get("ORVO_TOOL")
        if tool:
            printed = subprocess.run([tool, "nodes", "--json"], check=True,
                                     capture_output=True, text=True).stdout
            self.assertEqual(json.loads(printed), types)


@unittest.skipIf(SKIP, "the extension is not loaded in this build")
class Shading(unittest.TestCase):
    def test_shade_fills_a_float_buffer_row_by_row(self):
        scene = orvo.Scene.load(CHECKER)
        # Sample (i, j) has uv ((i + 0.5) / 2, (j + 0.5) / 2): black where i
        # and j are equal (same side of 0.5), white elsewhere.
        view = scene.shade("sg", res=(2, 2), outputs=["outColor", "uvCoord"])
        self.assertIsInstance(view, memoryview)
        self.assertEqual((view.format, view.itemsize, view.shape), ("f", 4, (2, 2, 5)))
        self.assertEqual(view.tolist(), [
            [[0, 0, 0, 0.25, 0.25], [1, 1, 1, 0.75, 0.25]],
            [[1, 1, 1, 0.25, 0.75], [0, 0, 0, 0.75, 0.75]],
        ])
        # One row of three: uv (1/6 .. 5/6, 0.5) lies on the checker's edge
        # in v, where the two colours mix evenly.
        row = scene.shade("sg", res=(3, 1))
        self.assertEqual(row.shape, (1, 3, 3))
        self.assertEqual(row.tolist(), [[[0.5] * 3] * 3])

    def test_shade_takes_sample_fields(self):
        scene = orvo.Scene.load(LAMBERT_SUN)
        # Facing the light: colour x 2 x 0.8 + colour x ambient + incandescence
        # = (0.5 x 1.6 + 0.1 + 0.1, 0.25 x 1.6 + 0.05, 1.6 + 0.2).
        view = scene.shade("claySG", res=(1, 1), fields={"normalCamera": (0, 1, 0)},
                           outputs=["outColor", "outMatteOpacity"])
        got = view.tolist()[0][0]
        for value, expected in zip(got, [1.0, 0.45, 1.8, 1.0, 1.0, 1.0]):
            self.assertAlmostEqual(value, expected, places=5)
        # Facing away: ambient and incandescence alone.
        away = scene.shade("claySG", res=(1, 1), fields={"normalCamera": [0, -1, 0]})
        for value, expected in zip(away.tolist()[0][0], [0.2, 0.05, 0.2]):
            self.assertAlmostEqual(value, expected, places=5)
        for fields, outputs in (({"normalCamera": (0, 1)}, ["outColor"]),
                                ({"nosuchfield": 1}, ["outColor"]),
                                ({}, ["outColr"])):
            with self.assertRaises(orvo.SceneError):
                scene.shade("claySG", res=(1, 1), fields=fields, outputs=outputs)
        with self.assertRaises(orvo.SceneError) as caught:
            scene.shade("clay")
        self.assertIn("not a shading group", caught.exception.message)

    def test_compile_report_as_a_dict(self):
        scene = orvo.Scene.load(CHECKER)
        report = scene.compile("sg")
        self.assertEqual((report["group"], report["option"], report["compiled"]),
                         ("sg", 0, True))
        self.assertIn("outColor", report["provides"])
        self.assertIn("uvCoord", report["needs"])
        self.assertTrue(report["segments"][0]["root"])
        self.assertIn("copy block 0 outColor -> sample.outColor", report["instructions"])
        self.assertTrue(report["text"].startswith("shading group sg, option 0\n"))
        with self.assertRaises(orvo.SceneError):
            scene.compile("sg", option=12)


@unittest.skipIf(SKIP, "the extension is not loaded in this build")
class Rendering(unittest.TestCase):
    # A camera that sees only its background, pure red: 1 and 0 stay 255
    # and 0 in 8 bits whatever the output transform.
    SCENE = ("node transform cam\nnode camera camShape -parent cam\n"
             "set camShape.backgroundColor 1 0 0\n"
             "set defaultRenderGlobals.imageFormat 20\n"
             "set defaultRenderGlobals.putFrameBeforeExt true\n")

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="orvo_python_")

    def tearDown(self):
        shutil.rmtree(self.dir)

    def test_names_and_render_with_progress(self):
        scene = orvo.Scene()
        scene.run(self.SCENE)
        out = os.path.join(self.dir, "images")
        names = scene.names(out, frames=(1, 3))
        self.assertEqual(names, [os.path.join(out, "untitled.%04d.bmp" % f) for f in (1, 2, 3)])
        calls = []
        written = scene.render(out, res=(5, 3), frames=(1, 3), spp=1,
                               progress=lambda path, done, total: calls.append((path, done, total)))
        self.assertEqual(written, names)
        for path in names:
            width, height, rows = read_bmp(path)
            self.assertEqual((width, height), (5, 3))
            self.assertEqual({p for row in rows for p in row}, {(255, 0, 0)})
        # Each image ends with all its tiles done.
        for path in names:
            last = [c for c in calls if c[0] == path][-1]
            self.assertEqual(last[1], last[2])
        self.assertTrue(all(0 <= done <= total for _, done, total in calls))

    def test_a_callback_error_stops_the_render_and_is_raised(self):
        scene = orvo.Scene()
        scene.run(self.SCENE)
        out = os.path.join(self.dir, "images")

        def fail(path, done, total):
            raise ValueError("stop at " + os.path.basename(path))

        with self.assertRaises(ValueError) as caught:
            scene.render(out, res=(4, 4), frames=(1, 2), spp=1, progress=fail)
        self.assertEqual(str(caught.exception), "stop at untitled.0001.bmp")
        # Nothing after the image in hand was rendered.
        self.assertFalse(os.path.exists(os.path.join(out, "untitled.0002.bmp")))
        with self.assertRaises(orvo.SceneError):
            scene.render(out, spp=0)

    def test_other_threads_run_while_it_renders(self):
        # With the switch interval this long, a thread that holds the
        # interpreter lock keeps it until it blocks or leaves Python: the
        # helper thread can only have finished its count before a later
        # progress call if the render let go of the lock while it worked.
        scene = orvo.Scene()
        scene.run(self.SCENE)
        go, finished = threading.Event(), threading.Event()
        counted = []

        def count():
            go.wait()
            counted.append(sum(range(1000)))
            finished.set()

        helper = threading.Thread(target=count)
        helper.start()
        seen = []

        def progress(path, done, total):
            go.set()
            seen.append(finished.is_set())

        interval = sys.getswitchinterval()
        sys.setswitchinterval(1000.0)
        try:
            scene.render(os.path.join(self.dir, "images"), res=(8, 8), frames=(1, 6), spp=1,
                         progress=progress)
        finally:
            sys.setswitchinterval(interval)
            go.set()
            helper.join()
        self.assertEqual(counted, [499500])
        self.assertTrue(any(seen), seen)


if __name__ == "__main__":
    unittest.main()
