import ast
import glob
import inspect
import os
import subprocess

import fsys
import fsys._native
from python_case import HOME, SOURCE, PythonCase, main


class Types(PythonCase):
    def run_tool(self, tool, *arguments, expect=0):
        """mypy, or what comes with it. All share a cache, which the tests of this class have to themselves."""
        environment = dict(os.environ, MYPYPATH=os.path.dirname(os.path.dirname(fsys.__file__)))
        if tool == "mypy":
            arguments = ("--strict", "--cache-dir", os.path.join(HOME, "mypy"), *arguments)
        done = subprocess.run([os.environ.get(tool.upper()) or tool, *arguments], cwd=self.root, env=environment,
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, expect, done.stdout + done.stderr)
        return done.stdout

    def test_the_package_and_the_examples_pass_the_strict_checker(self):
        examples = sorted(glob.glob(os.path.join(SOURCE, "examples", "python", "*.py")))
        self.assertGreater(len(examples), 1)
        self.run_tool("mypy", "-p", "fsys")
        self.run_tool("mypy", "--scripts-are-modules", *examples)

    def test_a_wrong_use_does_not_pass_it(self):
        script = self.write("wrong.py", b"import fsys\nwith fsys.open() as s:\n    s.find(5, 'best')\n    s.nothing()\n")
        self.assertEqual(self.run_tool("mypy", script, expect=1).count("error:"), 3)

    def test_the_stubs_of_the_native_module_have_its_names(self):
        # What pybind11 puts below its classes: a metaclass, and an __init__ that says what cannot be made.
        allowed = self.write("allowed", b"fsys\\._native\\.(Data|Reader|Recorder|Watch)\n"
                                        b"fsys\\._native\\.(Data|Reader|Recorder)\\.__init__\n")
        self.run_tool("stubtest", "fsys._native", "--allowlist", allowed)

    def test_the_stubs_of_the_native_module_have_its_signatures(self):
        # pybind11 tells signatures in the first line of a docstring alone, where stubtest does not look.
        stub = os.path.join(os.path.dirname(fsys.__file__), "_native.pyi")
        with open(stub, encoding="utf-8") as file:
            tree = ast.parse(file.read())

        def check(node, holder, name):
            if isinstance(node, ast.FunctionDef):
                member = inspect.getattr_static(holder, node.name)
                if isinstance(member, property):
                    return
                doc = getattr(holder, node.name).__doc__ or ""
                shown = doc.splitlines()[0]
                given = [part.split(":")[0].strip() for part in shown[shown.index("(") + 1:shown.index(")")].split(",")]
                given = [part for part in given if part and part != "self"]
                wanted = [argument.arg for argument in node.args.args if argument.arg != "self"]
                if node.name not in ("__len__",):
                    self.assertEqual(given, wanted, f"{name}.{node.name}: {shown}")
            elif isinstance(node, ast.ClassDef):
                for child in node.body:
                    check(child, getattr(holder, node.name), f"{name}.{node.name}")

        for node in tree.body:
            check(node, fsys._native, "_native")

    def test_everything_public_is_documented(self):
        for name in fsys.__all__:
            thing = getattr(fsys, name)
            if not inspect.isclass(thing) and not inspect.isfunction(thing):
                continue  # an alias of types
            self.assertTrue(inspect.getdoc(thing), name)
            if not inspect.isclass(thing) or not thing.__module__.startswith("fsys"):
                continue
            for member_name, member in vars(thing).items():
                documentable = inspect.isfunction(member) or isinstance(member, property)
                if documentable and not member_name.startswith("_"):
                    self.assertTrue(inspect.getdoc(getattr(thing, member_name)), f"{name}.{member_name}")

    def test_the_package_says_that_it_is_typed(self):
        self.assertTrue(os.path.exists(os.path.join(os.path.dirname(fsys.__file__), "py.typed")))


if __name__ == "__main__":
    main()
