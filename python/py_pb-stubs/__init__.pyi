from typing import Any

from typing_extensions import Buffer

def py_to_serialized_str(
    values: tuple[Any, ...] | list[Any] | set[Any],
    /,
    *,
    nargout: int | str = 1,
    schema: str = "ZORVAN_PARAMS",
) -> bytes:
    """Encodes the arguments of an engine call as a serialized parameters message.

    values: the arguments, one array each.
    nargout: the number of outputs asked for, at least 0; text is read up to its first character
        that is no digit. Only the low 32 bits travel.
    schema: "ZORVAN_PARAMS" or "ZORVAN_RESULT"; checked, but a parameters message is written in
        either case. Keywords written after an int nargout are not looked at.

    Raises TypeError for other than one positional argument and for values of unsupported types,
    ValueError for bad keywords and for what cannot be encoded, OverflowError for ints beyond
    64 bits, RecursionError for values nested too deeply or containing themselves.
    """

def serialized_str_to_py(data: Buffer, /, *, schema: str = "ZORVAN_RESULT", **ignored: Any) -> Any:
    """Decodes a serialized result message.

    data: the bytes of the message, in any contiguous bytes-like object.
    schema: "ZORVAN_PARAMS" or "ZORVAN_RESULT"; checked, but a result message is read in either
        case. Other keywords are ignored.

    Returns the list of the arrays in the result; for a result that carries an error, a dict that
    describes the error.

    Raises ValueError when the argument is not one bytes-like object or a keyword is bad, and
    SystemError when the bytes hold no result (what was wrong is written to standard error).
    """
