"""SMTP sink for the mail tests, on the loopback only:

    python3 mail_sink.py FOLDER [--tls CERTDIR --login USER:PASSWORD]

Listens on ports of the system's choosing and prints them as one line, "plain=N" and with --tls also
"starttls=N smtps=N": plain takes any mail without a login; starttls offers STARTTLS and smtps speaks TLS from
the start, both with a certificate made here by its own CA (CERTDIR/ca.pem; CERTDIR/other-ca.pem is a CA that
signed nothing) and both refusing mail without the login. Ends when its standard input closes, or after
--lifetime seconds (default 300), so that a test that dies leaves nothing running.

Every message is parsed here, by Python's own mail package, and written to FOLDER as NNNN.json (what a
receiving mail program would show) next to NNNN.eml (the bytes as received)."""
import argparse
import asyncio
import base64
import email
import email.header
import email.policy
import email.utils
import itertools
import json
import logging
import os
import re
import ssl
import subprocess
import sys
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

OPENSSL_CONFIG = """\
[req]
distinguished_name = dn
prompt = no
[dn]
CN = unused
[ca]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = IP:127.0.0.1
authorityKeyIdentifier = keyid
"""


def make_certs(folder):
    """A CA, a server certificate for 127.0.0.1 signed by it, and a second CA that signed nothing."""
    os.makedirs(folder, exist_ok=True)
    path = lambda name: os.path.join(folder, name)
    with open(path("openssl.cnf"), "w") as f:
        f.write(OPENSSL_CONFIG)

    def openssl(*args):
        subprocess.run(["openssl", *args], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=30)

    new_key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-config", path("openssl.cnf")]
    for ca in ("ca", "other-ca"):
        openssl("req", "-x509", *new_key, "-extensions", "ca", "-days", "2", "-subj", "/CN=mail test " + ca,
                "-keyout", path(ca + ".key"), "-out", path(ca + ".pem"))
    openssl("req", "-new", *new_key, "-subj", "/CN=127.0.0.1", "-keyout", path("server.key"),
            "-out", path("server.csr"))
    openssl("x509", "-req", "-in", path("server.csr"), "-CA", path("ca.pem"), "-CAkey", path("ca.key"),
            "-set_serial", "2", "-days", "2", "-extfile", path("openssl.cnf"), "-extensions", "server",
            "-out", path("server.pem"))
    context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    context.load_cert_chain(path("server.pem"), path("server.key"))
    return context


def decoded(value):
    return str(email.header.make_header(email.header.decode_header(value))) if value is not None else None


class Sink:
    def __init__(self, folder):
        self.folder = folder
        self.count = itertools.count(1)

    async def handle_DATA(self, server, session, envelope):
        raw = envelope.original_content
        msg = email.message_from_bytes(raw, policy=email.policy.default)
        lines = raw.split(b"\r\n")
        date = msg["Date"]
        info = {
            "mail_from": envelope.mail_from,
            "rcpt_tos": envelope.rcpt_tos,
            "login": session.auth_data.decode() if isinstance(session.auth_data, bytes) else None,
            "tls": session.ssl is not None or server.transport.get_extra_info("ssl_object") is not None,
            "bare_cr_or_lf": bool(re.search(rb"\r(?!\n)|(?<!\r)\n", raw)),
            "max_line": max(len(line) for line in lines),
            "non_ascii": any(b > 127 for b in raw),
            "date": str(date) if date else None,
            "date_ok": bool(date) and email.utils.parsedate_to_datetime(str(date)) is not None,
            "message_id": str(msg["Message-ID"] or ""),
            "from": [[a.display_name, a.username + "@" + a.domain] for a in msg["From"].addresses],
            "to": [[a.display_name, a.username + "@" + a.domain] for a in msg["To"].addresses],
            "subject": str(msg["Subject"]),
            "content_type": msg.get_content_type(),
            "defects": [repr(d) for part in msg.walk() for d in part.defects],
            "body": msg.get_body(preferencelist=("plain",)).get_content(),
            "attachments": [
                {
                    "filename": part.get_filename(),
                    "name": decoded(part.get_param("name")),
                    "data": base64.b64encode(part.get_content()).decode(),
                }
                for part in msg.iter_attachments()
            ],
        }
        stem = os.path.join(self.folder, "%04d" % next(self.count))
        with open(stem + ".eml", "wb") as f:
            f.write(raw)
        with open(stem + ".tmp", "w", encoding="utf-8") as f:
            json.dump(info, f, ensure_ascii=False)
        os.replace(stem + ".tmp", stem + ".json")
        return "250 OK"


class Login:
    def __init__(self, text):
        user, _, password = text.partition(":")
        self.expected = (user.encode(), password.encode())

    def __call__(self, server, session, envelope, mechanism, auth_data):
        ok = (getattr(auth_data, "login", None), getattr(auth_data, "password", None)) == self.expected
        return AuthResult(success=ok, handled=False, auth_data=self.expected[0] if ok else None)


async def serve(args):
    loop = asyncio.get_running_loop()
    sink = Sink(args.folder)
    common = dict(hostname="sink.test", timeout=30)
    servers = {"plain": dict()}
    if args.tls:
        context = make_certs(args.tls)
        login = dict(authenticator=Login(args.login), auth_required=True)
        servers["starttls"] = dict(tls_context=context, **login)
        # The connection is encrypted from its first byte, which aiosmtpd does not see: allow AUTH on it.
        servers["smtps"] = dict(auth_require_tls=False, **login)
    ports = []
    for name, options in servers.items():
        server = await loop.create_server(
            lambda options=options: SMTP(sink, **common, **options),
            "127.0.0.1", 0, ssl=context if name == "smtps" else None)
        ports.append("%s=%d" % (name, server.sockets[0].getsockname()[1]))
    print(" ".join(ports), flush=True)

    done = loop.create_future()
    loop.add_reader(sys.stdin.fileno(), lambda: os.read(sys.stdin.fileno(), 4096) or done.done() or done.set_result(0))
    try:
        await asyncio.wait_for(done, args.lifetime)
    except asyncio.TimeoutError:
        pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--tls", metavar="CERTDIR")
    parser.add_argument("--login", metavar="USER:PASSWORD", default="")
    parser.add_argument("--lifetime", type=float, default=300)
    args = parser.parse_args()
    # The tests judge by the client's result; aiosmtpd's own reports of refused sessions would only be noise.
    warnings.simplefilter("ignore")
    logging.getLogger("mail.log").setLevel(logging.CRITICAL)
    asyncio.run(serve(args))


if __name__ == "__main__":
    main()
