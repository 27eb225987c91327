# SPDX-License-Identifier: MIT
"""The type stubs (_tetherhost.pyi) against the module they describe: every
class, function and constant the native module has is in the stubs with the
same public members, and nothing more; the session's context manager is in
them too; every public name has a docstring."""
import ast
import inspect
from pathlib import Path

import tetherhost
from tetherhost import _tetherhost

STUBS = Path(_tetherhost.__file__).with_name("_tetherhost.pyi")


def stub_names():
    tree = ast.parse(STUBS.read_text())
    names = {}
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            members = set()
            for item in node.body:
                if isinstance(item, ast.FunctionDef) and not item.name.startswith("_"):
                    members.add(item.name)
                elif isinstance(item, ast.AnnAssign):
                    members.add(item.target.id)
            names[node.name] = members
        elif isinstance(node, ast.FunctionDef):
            names[node.name] = None
        elif isinstance(node, ast.AnnAssign):
            names[node.target.id] = None
    return names


def runtime_names():
    names = {}
    for name, value in vars(_tetherhost).items():
        if name.startswith("__"):
            continue
        if inspect.isclass(value) and not issubclass(value, BaseException):
            names[name] = {member for member in vars(value) if not member.startswith("_")}
        elif inspect.isclass(value):
            names[name] = {"status", "text", "from_server", "operation", "message"}
        else:
            names[name] = None
    return names


def test_the_stubs_name_what_the_module_has():
    assert stub_names() == runtime_names()


def test_the_stubs_give_the_session_its_constructor_and_context_manager():
    tree = ast.parse(STUBS.read_text())
    session = next(node for node in tree.body if isinstance(node, ast.ClassDef) and node.name == "Session")
    protocol = {"__init__", "__enter__", "__exit__"}
    assert protocol <= {item.name for item in session.body if isinstance(item, ast.FunctionDef)}
    assert protocol <= set(vars(_tetherhost.Session))


def test_every_public_name_is_documented():
    for name in tetherhost.__all__:
        value = getattr(tetherhost, name)
        if callable(value):
            assert value.__doc__, name
    for method in ("send", "jtag", "scan_ir", "scan_dr", "chain", "sspi_write", "sspi_transfer", "i2c_write",
                   "i2c_transfer", "pump", "pump_transfer", "read_text", "read_int", "read_list", "read_data",
                   "play_svf", "close"):
        assert getattr(tetherhost.Session, method).__doc__, method
