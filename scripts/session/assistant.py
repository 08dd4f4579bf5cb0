"""An assistant's side of the tool server, through the protocol's reference client."""
import contextlib

import mcp


@contextlib.asynccontextmanager
async def connected(program, environment, log, mode="auto"):
    """A client connected to `program --mcp`; the server's standard error goes to the file `log`.

    Mode "auto" first asks for the protocol's newest revisions and falls back, as hosts do;
    "legacy" starts with the handshake at once.
    """
    server = mcp.StdioServerParameters(command=str(program), args=["--mcp"], env=environment)
    transport = mcp.stdio_client(server, errlog=log)
    async with mcp.Client(transport, mode=mode, read_timeout_seconds=60) as client:
        yield client


async def text_of(client, tool, **arguments):
    """Calls a tool and returns its answer, which is one text."""
    result = await client.call_tool(tool, arguments)
    (content,) = result.content
    assert content.type == "text" and not result.is_error, result
    return content.text
