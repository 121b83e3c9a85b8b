"""Fixtures: the stock protobuf runtime as a judge that shares no code with the codec under test."""

import shutil
import subprocess
from types import SimpleNamespace

import pytest
import zorvan

MESSAGE_NAMES = (
    "foundation.protobuf.common.ZORVAN_Params",
    "foundation.protobuf.common.ZORVAN_Result",
    "foundation.protobuf.common.ZORVAN_Error",
    "foundation.zorvandata.protobuf.ZORVAN_Array",
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
