"""Fixtures: the stock protobuf runtime as a judge that shares no code with the codec under test."""

import os
import shutil
import subprocess
import sysconfig
from types import SimpleNamespace

import pytest
import zorvan

# The commands are installed beside the interpreter, which need not be on PATH.
os.environ["PATH"] = os.pathsep.join([sysconfig.get_path("scripts"), os.environ.get("PATH", "")])

MESSAGE_NAMES = (
    "foundation.protobuf.common.ZORVAN_Params",
    "foundation.protobuf.common.ZORVAN_Result",
    "foundation.protobuf.common.ZORVAN_Error",
    "foundation.zorvandata.protobuf.ZORVAN_Array",
    "foundation.zorvandata.protobuf.ZORVAN_Tape",
)


@pytest.fixture(scope="session")
def messages(tmp_path_factory: pytest.TempPathFactory) -> SimpleNamespace:
    """The message classes of the installed schemas, by their unqualified names."""
    from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

    protoc = shutil.which("protoc")
    assert protoc, "protoc must be on the PATH"
    root = zorvan.schema_dir()
    schemas = sorted(path.relative_to(root).as_posix() for path in root.rglob("*.proto"))
    output = tmp_path_factory.mktemp("schemas") / "schemas.bin"
    subprocess.run(
        [protoc, f"-I{root}", f"-o{output}", "--include_imports", *schemas], check=True
    )

    pool = descriptor_pool.DescriptorPool()
    for file in descriptor_pb2.FileDescriptorSet.FromString(output.read_bytes()).file:
        pool.Add(file)
    classes = {}
    for name in MESSAGE_NAMES:
        descriptor = pool.FindMessageTypeByName(name)
        classes[descriptor.name] = message_factory.GetMessageClass(descriptor)
    return SimpleNamespace(**classes)
