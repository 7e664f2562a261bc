"""A WebSocket server for tests: prints its port, then does what each connection's path asks for.

usage: websocket_server.py [CERTIFICATE KEY]      (with TLS when given)
"""
import asyncio
import ctypes
import http
import signal
import ssl
import sys
import urllib.parse

import websockets

PR_SET_PDEATHSIG = 1
MESSAGE = bytes(range(256)) * 4096  # 1 MiB
news = asyncio.Queue()  # what connections tell for another one to ask for


async def echo(socket):
    async for message in socket:
        await socket.send(message)


async def kinds(socket):
    await socket.send("h\u00e9llo")
    await socket.send(b"\x00\x01\xff")
    await socket.send("")
    await socket.send(b"")
    await socket.send(["frag", "men", "", "ts"])
    await socket.send([b"\x01", b"\x00"])
    await socket.send("zero\0inside")
    if socket.path != "/kinds/close":
        await socket.wait_closed()


async def pings(socket):
    """A message, then a ping."""
    await socket.send("first")
    try:
        await asyncio.wait_for(await socket.ping(), 10)
        await news.put("answered")
    except asyncio.TimeoutError:
        await news.put("not answered")
    await socket.wait_closed()


async def many(socket):
    for number in range(3000):
        await socket.send("%d " % number * 100)


async def sizes(socket):
    """Answers a number with that many bytes."""
    async for message in socket:
        size = int(message)
        await socket.send((MESSAGE * (size // len(MESSAGE) + 1))[:size])


async def close(socket):
    code, reason = socket.path.split("/")[2:4]
    await socket.send("last words")
    await socket.close(int(code), urllib.parse.unquote(reason))


async def reset(socket):
    await socket.recv()
    socket.transport.abort()


async def headers(socket):
    await socket.send("\n".join("%s: %s" % field for field in socket.request_headers.raw_items()))


async def goodbye(socket):
    count = 0
    try:
        async for _ in socket:
            count += 1
    finally:
        await news.put("%d messages, code %d" % (count, socket.close_code))


async def tell(socket):
    await socket.send(await asyncio.wait_for(news.get(), 10))


async def serve(socket):
    await globals()[socket.path.split("?")[0].split("/")[1]](socket)


async def answer_http(path, request_headers):
    if path == "/missing":
        return http.HTTPStatus.NOT_FOUND, [], b"nothing here\n"
    return None


async def main():
    context = None
    if len(sys.argv) == 3:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(sys.argv[1], sys.argv[2])
    server = await websockets.serve(serve, "127.0.0.1", 0, ssl=context, max_size=None, ping_interval=None,
                                    close_timeout=2, compression=None, process_request=answer_http)
    print(server.sockets[0].getsockname()[1], flush=True)
    await asyncio.Future()


ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
signal.signal(signal.SIGINT, signal.SIG_DFL)
asyncio.run(main())
