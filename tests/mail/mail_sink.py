"""SMTP sink for the mail tests: python3 -m aiosmtpd -n -l 127.0.0.1:PORT -c mail_sink.Sink FOLDER

Every message is parsed here, by Python's own mail package, and written to FOLDER as NNNN.json (what a
receiving mail program would show) next to NNNN.eml (the bytes as received)."""
import base64
import email
import email.header
import email.policy
import email.utils
import itertools
import json
import os
import re


def decoded(value):
    return str(email.header.make_header(email.header.decode_header(value))) if value is not None else None


class Sink:
    def __init__(self, folder):
        self.folder = folder
        self.count = itertools.count(1)

    @classmethod
    def from_cli(cls, parser, *args):
        if len(args) != 1:
            parser.error("mail_sink.Sink takes one argument: the folder")
        return cls(args[0])

    async def handle_DATA(self, server, session, envelope):
        raw = envelope.original_content
        msg = email.message_from_bytes(raw, policy=email.policy.default)
        lines = raw.split(b"\r\n")
        date = msg["Date"]
        info = {
            "mail_from": envelope.mail_from,
            "rcpt_tos": envelope.rcpt_tos,
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
