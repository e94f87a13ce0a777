#!/usr/bin/env python3
"""A HiSLIP client written from IVI-6.1, and what it expects of a unit that speaks HiSLIP.

usage: hislip_client.py ADDRESS [TEST...]

Needs nothing but Python. Each test opens its own sessions; the first thing that is not as the standard has it
ends the run with a traceback.
"""
import socket
import struct
import sys
import time

HISLIP_PORT, VENDOR_PORT = 4880, 4881
FIRST_ID = 0xFFFFFF00
LIMIT = 30.0

NAMES = ["Initialize", "InitializeResponse", "FatalError", "Error", "AsyncLock", "AsyncLockResponse", "Data",
         "DataEnd", "DeviceClearComplete", "DeviceClearAcknowledge", "AsyncRemoteLocalControl",
         "AsyncRemoteLocalResponse", "Trigger", "Interrupted", "AsyncInterrupted", "AsyncMaximumMessageSize",
         "AsyncMaximumMessageSizeResponse", "AsyncInitialize", "AsyncInitializeResponse", "AsyncDeviceClear",
         "AsyncServiceRequest", "AsyncStatusQuery", "AsyncStatusResponse", "AsyncDeviceClearAcknowledge",
         "AsyncLockInfo", "AsyncLockInfoResponse"]
TYPES = {name: number for number, name in enumerate(NAMES)}
TYPES.update(VendorRequest=0x80, VendorReply=0x81)


class Message:
    def __init__(self, kind, control, parameter, payload):
        self.kind, self.control, self.parameter, self.payload = kind, control, parameter, payload

    def __repr__(self):
        return "%d control %d parameter 0x%08x, %d bytes" % (self.kind, self.control, self.parameter,
                                                             len(self.payload))


class Channel:
    """One connection that carries messages."""

    def __init__(self, address, port=HISLIP_PORT):
        self.socket = socket.create_connection((address, port), timeout=LIMIT)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def send(self, name, control=0, parameter=0, payload=b""):
        kind = TYPES[name] if isinstance(name, str) else name
        self.raw(b"HS" + struct.pack(">BBIQ", kind, control, parameter, len(payload)) + payload)

    def raw(self, data):
        self.socket.sendall(data)

    def bytes(self, count):
        data = b""
        while len(data) < count:
            part = self.socket.recv(min(count - len(data), 1 << 20))
            if not part:
                raise EOFError("the unit has closed the connection")
            data += part
        return data

    def receive(self, limit=LIMIT):
        self.socket.settimeout(limit)
        header = self.bytes(16)
        self.socket.settimeout(LIMIT)
        assert header[:2] == b"HS", header
        kind, control, parameter, length = struct.unpack(">BBIQ", header[2:])
        assert length <= 1 << 24, length
        return Message(kind, control, parameter, self.bytes(length))

    def expect(self, name):
        message = self.receive()
        assert message.kind == TYPES[name], "%s expected, not %r" % (name, message)
        return message

    def quiet(self, seconds=0.3):
        """Nothing comes for a while. Can only fail on a wrong unit, however slow the machine is."""
        try:
            message = self.receive(seconds)
        except (TimeoutError, socket.timeout):
            return True
        raise AssertionError("unexpected %r" % message)

    def ends(self):
        try:
            while self.socket.recv(65536):
                pass
        except ConnectionResetError:
            pass

    def close(self):
        self.socket.close()


class Session:
    """Both connections of a client."""

    def __init__(self, address, version=0x0100, vendor=b"PY", sub_address=b""):
        self.address = address
        self.sync = Channel(address)
        self.sync.send("Initialize", 0, version << 16 | struct.unpack(">H", vendor)[0], sub_address)
        answer = self.sync.expect("InitializeResponse")
        self.version, self.number = answer.parameter >> 16, answer.parameter & 0xFFFF
        self.overlap = bool(answer.control & 1)
        self.asynchronous = Channel(address)
        self.asynchronous.send("AsyncInitialize", 0, self.number)
        self.vendor = self.asynchronous.expect("AsyncInitializeResponse").parameter
        self.id = FIRST_ID
        self.delivered = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.sync.close()
        self.asynchronous.close()

    def write(self, text, pieces=1):
        """Sends a program message, on request in several messages; returns the id of its last one."""
        data = text.encode() + b"\n"
        size = -(-len(data) // pieces)
        parts = [data[i:i + size] for i in range(0, len(data), size)]
        for part in parts:
            last, sent = part is parts[-1], self.id
            self.sync.send("DataEnd" if last else "Data", self.delivered, sent, part)
            self.id = (self.id + 2) & 0xFFFFFFFF
            self.delivered = 0
        return sent

    def read(self, wanted):
        """The whole response to the message `wanted`, and of how many messages it was."""
        data, count = b"", 0
        while True:
            message = self.sync.receive()
            assert message.kind in (TYPES["Data"], TYPES["DataEnd"]), message
            assert message.parameter == wanted, (message, hex(wanted))
            data, count = data + message.payload, count + 1
            if message.kind == TYPES["DataEnd"]:
                self.delivered = 1
                assert data.endswith(b"\n"), data[-20:]
                return data[:-1], count

    def ask(self, text):
        return self.read(self.write(text))[0].decode()

    def request_lock(self, name=b"", milliseconds=0):
        self.asynchronous.send("AsyncLock", 1, milliseconds, name)

    def lock(self, name=b"", milliseconds=0):
        self.request_lock(name, milliseconds)
        return self.asynchronous.expect("AsyncLockResponse").control

    def release(self):
        self.asynchronous.send("AsyncLock", 0, (self.id - 2) & 0xFFFFFFFF)
        return self.asynchronous.expect("AsyncLockResponse").control

    def status(self):
        self.asynchronous.send("AsyncStatusQuery", self.delivered, (self.id - 2) & 0xFFFFFFFF)
        return self.asynchronous.expect("AsyncStatusResponse").control

    def clear(self):
        self.asynchronous.send("AsyncDeviceClear")
        features = self.asynchronous.expect("AsyncDeviceClearAcknowledge").control
        self.sync.send("DeviceClearComplete", features)
        while True:
            message = self.sync.receive()
            if message.kind == TYPES["DeviceClearAcknowledge"]:
                break
            assert message.kind in (TYPES["Data"], TYPES["DataEnd"]), message
        self.id, self.delivered = FIRST_ID, 0


def expect_fatal(channel, code):
    message = channel.expect("FatalError")
    assert message.control == code, message
    channel.ends()


def test_handshake(address):
    with Session(address) as one, Session(address, version=0x1000, sub_address=b"hislip0") as two:
        assert one.version == two.version == 0x0100, (one.version, two.version)
        assert not one.overlap
        assert one.number != two.number and one.number != 0
        assert one.vendor <= 0xFFFF and all(48 <= c < 127 for c in struct.pack(">H", one.vendor))


def test_query(address):
    with Session(address) as session:
        identity = session.ask("*IDN?").split(",")
        assert len(identity) == 4 and identity[0] == "Varnik", identity
        for _ in range(50):
            assert session.ask("*OPC?") == "1"
        assert session.id == (FIRST_ID + 2 * 51) & 0xFFFFFFFF
        assert session.ask(":SYSTem:COMMunicate:HISLip:SESSion?") == str(session.number)
        assert session.ask("*OPC?;:syst:comm:hisl:sess?") == "1;%d" % session.number
        session.write("*CLS")
        session.write("NONSENSE")
        assert session.ask("SYST:ERR?").startswith("-113,")
        assert session.ask("SYST:ERR?").startswith("0,")


def test_split(address):
    with Session(address) as session:
        for pieces in (2, 3, 5):
            assert session.read(session.write("*IDN?", pieces))[0].startswith(b"Varnik")
        whole = session.ask("*IDN?").encode()
        # A client that takes 8 bytes of payload besides the header gets the reply in parts.
        session.asynchronous.send("AsyncMaximumMessageSize", 0, 0, struct.pack(">Q", 24))
        most = session.asynchronous.expect("AsyncMaximumMessageSizeResponse").payload
        assert struct.unpack(">Q", most)[0] >= 1 << 16
        text, count = session.read(session.write("*IDN?"))
        assert text == whole and count == -(-(len(whole) + 1) // 8), (text, count)
        # One byte at a time on the wire is still one message.
        message = b"HS" + struct.pack(">BBIQ", TYPES["DataEnd"], 1, session.id, 6) + b"*OPC?\n"
        for byte in message:
            session.sync.raw(bytes([byte]))
        assert session.read(session.id)[0] == b"1"
        # And several messages may come in one segment.
        session.id = (session.id + 2) & 0xFFFFFFFF
        both = b"".join(b"HS" + struct.pack(">BBIQ", 7, 1, session.id + 2 * i, 6) + b"*OPC?\n" for i in (0, 1))
        session.sync.raw(both)
        assert session.read(session.id)[0] == b"1" and session.read(session.id + 2)[0] == b"1"


def test_lock(address):
    with Session(address) as one, Session(address) as two:
        assert one.release() == 3
        assert one.lock() == 1 and one.lock() == 3
        two.asynchronous.send("AsyncLockInfo")
        info = two.asynchronous.expect("AsyncLockInfoResponse")
        assert info.control == 1 and info.parameter == 1, info
        begun = time.monotonic()
        assert two.lock() == 0 and two.lock(milliseconds=200) == 0
        assert time.monotonic() - begun >= 0.2
        # What the other one asks waits until the lock is released.
        waiting = two.write("*OPC?")
        assert one.ask("*OPC?") == "1" and two.sync.quiet()
        two.request_lock(milliseconds=60000)
        assert two.asynchronous.quiet()
        assert one.release() == 1
        assert two.asynchronous.expect("AsyncLockResponse").control == 1
        assert two.read(waiting)[0] == b"1"
        # A session that ends gives its lock back.
        one.request_lock(milliseconds=60000)
        two.sync.close()
        assert one.asynchronous.expect("AsyncLockResponse").control == 1
        assert one.release() == 1
    with Session(address) as one, Session(address) as two, Session(address) as three:
        assert one.lock(b"together") == 1 and two.lock(b"together") == 1
        assert three.lock(b"alone") == 0 and three.lock() == 0
        assert one.lock() == 1 and two.lock() == 0
        assert one.release() == 1 and one.release() == 2 and one.release() == 3
        assert two.release() == 2 and three.lock() == 1


def test_clear(address):
    with Session(address) as session:
        session.sync.send("Data", 0, session.id, b"*IDN?;*IDN?;half a line")
        session.clear()
        assert session.id == FIRST_ID and session.ask("*OPC?") == "1"
        assert session.ask("SYST:ERR?").startswith("0,")
        # Between its two halves nothing is heard.
        session.asynchronous.send("AsyncDeviceClear")
        session.asynchronous.expect("AsyncDeviceClearAcknowledge")
        session.write("*IDN?")
        session.sync.send("DeviceClearComplete")
        session.sync.expect("DeviceClearAcknowledge")
        session.id, session.delivered = FIRST_ID, 0
        assert session.ask("*OPC?") == "1"


def test_other_messages(address):
    with Session(address) as session:
        assert session.status() & 0x04 == 0
        session.write("NONSENSE")
        assert session.ask("*OPC?") == "1"
        assert session.status() & 0x04
        session.write("*CLS")
        for control in range(7):
            session.asynchronous.send("AsyncRemoteLocalControl", control)
            session.asynchronous.expect("AsyncRemoteLocalResponse")
        session.sync.send("Trigger", 0, session.id)
        session.id += 2
        assert session.ask("*OPC?") == "1"


def test_bad_messages(address):
    """Each of them is answered as the standard has it, and the unit serves others meanwhile."""
    with Session(address) as session:
        for channel, kind, code in ((session.sync, 77, 1), (session.sync, TYPES["AsyncLock"], 1),
                                    (session.asynchronous, TYPES["DataEnd"], 1), (session.sync, 200, 3),
                                    (session.asynchronous, 200, 3)):
            channel.send(kind, 0, session.id, b"some payload")
            assert channel.expect("Error").control == code
        session.asynchronous.send("AsyncLock", 9)
        assert session.asynchronous.expect("Error").control == 2
        # Too long a payload is read away; the connection goes on.
        session.sync.send("DataEnd", 0, session.id, b"x" * ((1 << 20) + 1))
        assert session.sync.expect("Error").control == 4
        assert session.ask("*OPC?") == "1"
        for first in (b"XX" + bytes(14), b"HS" + struct.pack(">BBIQ", 7, 0, 0, 1 << 63)):
            with Session(address) as bad:
                bad.sync.raw(first)
                expect_fatal(bad.sync, 1)
                bad.asynchronous.ends()
            fresh = Channel(address)
            fresh.raw(first)
            expect_fatal(fresh, 1)
        for name, parameter in (("AsyncInitialize", 0xFFFF), ("AsyncInitialize", session.number),
                                ("AsyncInitialize", 0x10000 | session.number), ("DataEnd", FIRST_ID)):
            fresh = Channel(address)
            fresh.send(name, 0, parameter)
            expect_fatal(fresh, 3)
        half = Channel(address)
        half.send("Initialize", 0, 0x01005059)
        half.expect("InitializeResponse")
        half.send("DataEnd", 0, FIRST_ID, b"*IDN?\n")
        expect_fatal(half, 2)
        assert session.ask("*OPC?") == "1"


def vendor_channel(address, number):
    channel = Channel(address, VENDOR_PORT)
    channel.send("VendorRequest", 0, number)
    return channel, channel.expect("VendorReply").parameter


def packets(channel, count):
    """Whole packets from the channel: type, words, bytes."""
    for _ in range(count):
        head = channel.bytes(4)
        words = struct.unpack(">H", head[2:])[0]
        assert words >= 5, words
        yield head[0] >> 4, words, head + channel.bytes(words * 4 - 4)


def test_vendor_channel(address):
    with Session(address) as session:
        unknown, answer = vendor_channel(address, session.number ^ 0x8000)
        assert answer == 0x80000000, hex(answer)
        channel, answer = vendor_channel(address, int(session.ask(":SYSTem:COMMunicate:HISLip:SESSion?")))
        assert answer == session.number
        session.write("*CLS;:TRACe:SPPacket 1024;:SENSE:DEC 1024;:TRACe:STReam:STARt 77")
        assert session.ask("SYST:ERR?").startswith("0,")
        seen = [(kind, words) for kind, words, _ in packets(channel, 12)]
        # Contexts first, then data packets of 1024 samples with header, and trailer or none.
        data = [words for kind, words in seen if kind in (0, 1)]
        assert data and all(1024 + 5 <= words <= 1024 + 6 for words in data), seen
        assert any(kind in (4, 5) for kind, _ in seen), seen
        assert session.ask("*OPC?") == "1"
        session.write(":TRACe:STReam:STOP")
        assert session.ask("*OPC?") == "1"
        unknown.close()
    # The channel goes on when its session has ended.
    with Session(address) as session:
        session.write(":TRACe:STReam:STARt 78")
        assert sum(1 for _ in packets(channel, 20)) == 20
        channel.close()
        # One that comes while the capture runs gets its answer first, and then whole packets.
        channel, answer = vendor_channel(address, session.number)
        assert answer == session.number
        assert sum(1 for _ in packets(channel, 20)) == 20
        session.write(":TRACe:STReam:STOP")
        assert session.ask("*OPC?") == "1"
    channel.close()


def main(arguments):
    tests = {name[5:]: test for name, test in globals().items() if name.startswith("test_")}
    for name in arguments[1:] or tests:
        tests[name](arguments[0])
        print("ok", name, flush=True)
    print("all is as the standard has it")


if __name__ == "__main__":
    main(sys.argv[1:])
