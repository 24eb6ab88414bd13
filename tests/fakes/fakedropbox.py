#!/usr/bin/python3
"""A local Dropbox API v2 server for the tests: the routes the Brimvale agent uses, with Dropbox's request rules
and reply shapes (kept honest by the conformance tests, which drive it with the official SDKs).

It listens on 127.0.0.1 only, on two ports: one stands for api.dropboxapi.com (RPC routes, /oauth2/token,
the browser's /oauth2/authorize page and the test controls under /_control/), the other for
content.dropboxapi.com (upload and download). It prints one JSON line with both ports, then serves until it
is killed, or until its stdin closes when started with --watch-stdin.

State: files with per-path revisions and content hashes, a change journal that cursors point into, access
and refresh tokens, authorization codes with their PKCE challenge, and a queue of injected faults.

Controls (JSON bodies; answers are JSON):
  POST /_control/files     {"path", "content" | "content_base64"}  write as another client would
  POST /_control/delete    {"path"}                                delete as another client would
  GET  /_control/state                                             files with rev and content, journal length
  POST /_control/reset                                             every earlier cursor answers "reset"
  POST /_control/faults    {"route", "kind", "count", "status", "retry_after", "body", "text"}
        kind: "429" (JSON, or plain text with "text": true), "status" (a bare HTTP status such as 500 or 503),
        "error" (the given status and JSON body), "drop" (close before answering), "drop_after" (do the work,
        then close without answering), "truncate" (send half the answer, then close), "hold" and "hold_after"
        (keep the request open before or after doing the work until /_control/release, then close without
        answering). route: "files/upload", "oauth2/token", ... or "*".
  GET  /_control/faults                                            faults not yet used
  GET  /_control/held                                              {"count"} of requests held open now
  POST /_control/release                                           ends every held request
  POST /_control/tokens    {"token", "state": "valid"|"expired"|"invalid"}
                           {"refresh_token", "client_id"}          a refresh token the token route accepts
                           {"oauth1_token", "oauth1_token_secret"} an old-scheme token the upgrade accepts
                           {"expires_in"}                          lifetime of tokens issued from now on
  POST /_control/account   {"display_name", "email", ...}          fields of the account
  POST /_control/page_size {"limit"}                               the server's largest listing page
  GET  /_control/requests                                          every API request so far, in order
  POST /_control/requests/clear
"""

import argparse
import base64
import hashlib
import http.server
import json
import os
import secrets
import socket
import sys
import threading
import time
import urllib.parse

BLOCK_SIZE = 4 * 1024 * 1024
APP_KEY = "q4mzk8ewtdrn2ya"
ACCOUNT_ID = "dbid:AADf4bv9Wc-nTq0sKDq9dGRT-BrimvaleTe"
assert len(ACCOUNT_ID) == 40

# route -> (host, style, auth)
ROUTES = {
    "users/get_current_account": ("api", "rpc", "user"),
    "files/list_folder": ("api", "rpc", "user"),
    "files/list_folder/continue": ("api", "rpc", "user"),
    "files/delete_v2": ("api", "rpc", "user"),
    "auth/token/revoke": ("api", "rpc", "user"),
    "auth/token/from_oauth1": ("api", "rpc", "app"),
    "files/download": ("content", "download", "user"),
    "files/upload": ("content", "upload", "user"),
}
VOID_ROUTES = {"users/get_current_account", "auth/token/revoke"}
ARG_FIELDS = {
    "files/list_folder": {"path", "recursive", "include_media_info", "include_deleted",
                          "include_has_explicit_shared_members", "include_mounted_folders", "limit",
                          "shared_link", "include_property_groups", "include_non_downloadable_files"},
    "files/list_folder/continue": {"cursor"},
    "files/delete_v2": {"path", "parent_rev"},
    "files/download": {"path", "rev"},
    "files/upload": {"path", "mode", "autorename", "client_modified", "mute", "property_groups",
                     "strict_conflict", "content_hash"},
    "auth/token/from_oauth1": {"oauth1_token", "oauth1_token_secret"},
}


def content_hash(data):
    blocks = b"".join(hashlib.sha256(data[i:i + BLOCK_SIZE]).digest() for i in range(0, len(data), BLOCK_SIZE))
    return hashlib.sha256(blocks).hexdigest()


def timestamp(seconds=None):
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds))


def header_json(value):
    """Header JSON is ASCII: everything from U+007F on is escaped, as Dropbox does."""
    text = json.dumps(value, ensure_ascii=True, separators=(",", ":"))
    return text.replace("\x7f", "\\u007f")


def parent_of(path_lower):
    return path_lower.rsplit("/", 1)[0]


def error_body(summary, error):
    return {"error_summary": summary, "error": error}


class ApiError(Exception):
    """An answer other than 200: status, JSON value or text, extra headers."""

    def __init__(self, status, json_value=None, text=None, headers=None):
        super().__init__(status)
        self.status = status
        self.json_value = json_value
        self.text = text
        self.headers = headers or {}


def route_error(summary, error):
    return ApiError(409, error_body(summary, error))


def bad_request(route, message):
    return ApiError(400, text=f'Error in call to API function "{route}": {message}')


class Store:
    def __init__(self, tokens, page_size):
        self.lock = threading.RLock()
        self.files = {}          # path_lower -> file record
        self.folders = {}        # path_lower -> folder record
        self.journal = []        # path_lower of every change, in order; a cursor remembers a position
        self.epoch = 0
        self.cursors = {}
        self.tokens = {t: {"state": "valid", "refresh": None} for t in tokens}
        self.refresh_tokens = {}
        self.codes = {}
        self.oauth1 = {}
        self.expires_in = 14400
        self.page_size = page_size
        self.faults = []
        self.held = []
        self.requests = []
        self.account = {
            "given_name": "Zoë", "surname": "Brimvale", "familiar_name": "Zoë", "display_name": "Zoë Brimvale",
            "abbreviated_name": "ZB", "email": "zoe@example.com", "country": "DE", "locale": "en",
        }

    # --- metadata

    @staticmethod
    def file_metadata(rec):
        return {".tag": "file", "name": rec["name"], "path_lower": rec["path_lower"],
                "path_display": rec["path_display"], "id": rec["id"], "client_modified": rec["client_modified"],
                "server_modified": rec["server_modified"], "rev": rec["rev"], "size": len(rec["content"]),
                "is_downloadable": True, "content_hash": rec["content_hash"]}

    @staticmethod
    def folder_metadata(rec):
        return {".tag": "folder", "name": rec["name"], "path_lower": rec["path_lower"],
                "path_display": rec["path_display"], "id": rec["id"]}

    def metadata(self, path_lower):
        if path_lower in self.files:
            return self.file_metadata(self.files[path_lower])
        if path_lower in self.folders:
            return self.folder_metadata(self.folders[path_lower])
        return None

    @staticmethod
    def new_id():
        return "id:" + base64.urlsafe_b64encode(secrets.token_bytes(16)).decode().rstrip("=")

    @staticmethod
    def new_rev():
        # Random, so a client that orders revisions instead of comparing them is caught.
        return "%015x" % secrets.randbits(60)

    # --- writes

    def make_folders(self, path_display):
        parts = path_display.strip("/").split("/")[:-1]
        display = ""
        for part in parts:
            display += "/" + part
            lower = display.lower()
            if lower in self.files:
                return False
            if lower not in self.folders:
                self.folders[lower] = {"name": part, "path_lower": lower, "path_display": display,
                                       "id": self.new_id()}
                self.journal.append(lower)
        return True

    def write(self, path_display, content, client_modified=None):
        lower = path_display.lower()
        old = self.files.get(lower)
        now = time.time()
        rec = {"name": (old or {}).get("name", path_display.rsplit("/", 1)[1]),
               "path_lower": lower, "path_display": (old or {}).get("path_display", path_display),
               "id": old["id"] if old else self.new_id(), "rev": self.new_rev(), "content": content,
               "content_hash": content_hash(content), "server_modified": timestamp(now),
               "client_modified": client_modified or timestamp(now)}
        self.files[lower] = rec
        self.journal.append(lower)
        return rec

    def remove(self, lower):
        """Removes a file or a folder with everything in it; returns the metadata it had."""
        meta = self.metadata(lower)
        if lower in self.files:
            del self.files[lower]
            self.journal.append(lower)
        elif lower in self.folders:
            for p in [p for p in self.files if p.startswith(lower + "/")]:
                del self.files[p]
                self.journal.append(p)
            for p in sorted([p for p in self.folders if p == lower or p.startswith(lower + "/")], reverse=True):
                del self.folders[p]
                self.journal.append(p)
        return meta

    # --- listings

    def listing(self, path_lower, recursive):
        entries = []
        if path_lower:
            entries.append(self.folder_metadata(self.folders[path_lower]))
        prefix = path_lower + "/"
        for p in sorted(self.folders):
            if p != path_lower and p.startswith(prefix) and (recursive or parent_of(p) == path_lower):
                entries.append(self.folder_metadata(self.folders[p]))
        for p in sorted(self.files):
            if p.startswith(prefix) and (recursive or parent_of(p) == path_lower):
                entries.append(self.file_metadata(self.files[p]))
        return entries

    def changes_since(self, position, path_lower, recursive):
        changed = []
        seen = set()
        for p in reversed(self.journal[position:]):
            if p in seen:
                continue
            seen.add(p)
            inside = p == path_lower or p.startswith(path_lower + "/")
            if inside and (recursive or p == path_lower or parent_of(p) == path_lower):
                changed.append(p)
        changed.reverse()
        entries = []
        for p in changed:
            meta = self.metadata(p)
            if meta is None:
                meta = {".tag": "deleted", "name": p.rsplit("/", 1)[1], "path_lower": p, "path_display": p}
            entries.append(meta)
        return entries

    def page(self, cursor_state, entries, limit):
        size = min(limit or self.page_size, self.page_size)
        head, rest = entries[:size], entries[size:]
        state = dict(cursor_state, pending=rest if rest else None, position=len(self.journal))
        cursor = "AAF" + base64.urlsafe_b64encode(secrets.token_bytes(24)).decode().rstrip("=")
        self.cursors[cursor] = state
        return {"entries": head, "cursor": cursor, "has_more": bool(rest)}

    # --- tokens

    def issue_access_token(self, refresh=None):
        token = "sl.fake-" + secrets.token_urlsafe(24)
        self.tokens[token] = {"state": "valid", "refresh": refresh,
                              "expires_at": time.time() + self.expires_in if self.expires_in else None}
        return token

    def token_state(self, token):
        rec = self.tokens.get(token)
        if rec is None:
            return "invalid"
        if rec["refresh"] is not None and self.refresh_tokens.get(rec["refresh"], {}).get("revoked"):
            return "invalid"
        if rec["state"] == "valid" and rec.get("expires_at") and time.time() >= rec["expires_at"]:
            return "expired"
        return rec["state"]


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "FakeDropbox/1"
    store = None        # set by main
    host_role = None    # set per server: "api" or "content"

    def setup(self):
        super().setup()
        # Headers and body leave in separate writes; without this, Nagle's algorithm and the client's delayed
        # ACK add 40 ms to every answer on a kept-alive connection.
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def log_message(self, format, *args):
        pass

    # --- plumbing

    def read_body(self):
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length) if length else b""

    def send(self, status, body=b"", content_type=None, headers=None, truncate=False):
        self.send_response(status)
        if content_type:
            self.send_header("Content-Type", content_type)
        self.send_header("X-Dropbox-Request-Id", secrets.token_hex(16))
        for name, value in (headers or {}).items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if truncate:
            self.wfile.write(body[:len(body) // 2])
            self.wfile.flush()
            self.drop()
            return
        self.wfile.write(body)

    def send_json(self, status, value, headers=None, truncate=False):
        self.send(status, json.dumps(value, ensure_ascii=False).encode("utf-8"), "application/json", headers, truncate)

    def send_error_answer(self, err, truncate=False):
        if err.json_value is not None:
            self.send_json(err.status, err.json_value, err.headers, truncate)
        else:
            self.send(err.status, (err.text or "").encode(), "text/plain; charset=utf-8", err.headers, truncate)

    def drop(self):
        self.close_connection = True
        try:
            self.connection.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass

    def hold(self, entry):
        """Keeps the request open until the test releases it, then closes it without an answer."""
        released = threading.Event()
        with self.store.lock:
            entry["status"] = "held"
            self.store.held.append(released)
        released.wait(120)
        return self.drop()

    def log_request_entry(self, route, body):
        entry = {"host": self.host_role, "method": self.command, "path": urllib.parse.urlsplit(self.path).path,
                 "route": route, "query": urllib.parse.urlsplit(self.path).query,
                 "headers": {k.lower(): v for k, v in self.headers.items()}, "body_size": len(body),
                 "status": None}
        try:
            entry["body"] = body.decode("utf-8") if len(body) <= 65536 else None
        except UnicodeDecodeError:
            entry["body"] = None
        self.store.requests.append(entry)
        return entry

    def take_fault(self, route):
        for fault in self.store.faults:
            if fault["route"] in (route, "*"):
                fault["count"] -= 1
                if fault["count"] <= 0:
                    self.store.faults.remove(fault)
                return fault
        return None

    # --- dispatch

    def do_GET(self):
        path = urllib.parse.urlsplit(self.path).path
        if self.host_role == "api" and path == "/_control/state":
            return self.control("state", {})
        if self.host_role == "api" and path == "/_control/requests":
            with self.store.lock:
                return self.send_json(200, self.store.requests)
        if self.host_role == "api" and path == "/_control/faults":
            with self.store.lock:
                return self.send_json(200, self.store.faults)
        if self.host_role == "api" and path == "/_control/held":
            with self.store.lock:
                return self.send_json(200, {"count": len(self.store.held)})
        if self.host_role == "api" and path == "/oauth2/authorize":
            return self.authorize()
        self.send(404, b"Not found", "text/plain; charset=utf-8")

    def do_POST(self):
        body = self.read_body()
        path = urllib.parse.urlsplit(self.path).path
        if self.host_role == "api" and path.startswith("/_control/"):
            try:
                arg = json.loads(body or b"{}")
            except ValueError:
                return self.send(400, b"control body is not JSON", "text/plain; charset=utf-8")
            return self.control(path[len("/_control/"):], arg)
        if path == "/oauth2/token":
            route = "oauth2/token"
        elif path.startswith("/2/"):
            route = path[3:]
        else:
            return self.send(404, b"Not found", "text/plain; charset=utf-8")
        with self.store.lock:
            entry = self.log_request_entry(route, body)
            fault = self.take_fault(route)
        if fault and fault["kind"] == "drop":
            entry["status"] = "dropped"
            return self.drop()
        if fault and fault["kind"] == "hold":
            return self.hold(entry)
        if fault and fault["kind"] == "429":
            entry["status"] = 429
            retry = int(fault.get("retry_after", 1))
            if fault.get("text"):
                return self.send(429, b"Too Many Requests", "text/plain; charset=utf-8", {"Retry-After": str(retry)})
            return self.send_json(429, error_body("too_many_requests/..", {
                "reason": {".tag": "too_many_requests"}, "retry_after": retry}), {"Retry-After": str(retry)})
        if fault and fault["kind"] == "status":
            entry["status"] = fault["status"]
            return self.send(fault["status"], b"Internal Server Error", "text/html; charset=utf-8")
        if fault and fault["kind"] == "error":
            entry["status"] = fault["status"]
            return self.send_json(fault["status"], fault["body"])
        try:
            with self.store.lock:
                if route == "oauth2/token":
                    status, value, headers, raw = 200, self.token_route(body), {}, None
                else:
                    status, value, headers, raw = self.api_route(route, body)
        except ApiError as err:
            entry["status"] = err.status
            return self.send_error_answer(err, truncate=bool(fault and fault["kind"] == "truncate"))
        if fault and fault["kind"] == "drop_after":
            entry["status"] = "dropped"
            return self.drop()
        if fault and fault["kind"] == "hold_after":
            return self.hold(entry)
        truncate = bool(fault and fault["kind"] == "truncate")
        entry["status"] = "truncated" if truncate else status
        if raw is not None:
            self.send(status, raw, "application/octet-stream", headers, truncate)
        else:
            self.send_json(status, value, headers, truncate)

    # --- the API routes

    def api_route(self, route, body):
        if route not in ROUTES:
            raise ApiError(404, text=f"Unknown API function: {route!r}")
        host, style, auth = ROUTES[route]
        if host != self.host_role:
            raise bad_request(route, f"this function is served by the {host} host, not the {self.host_role} host")
        content_type = self.headers.get("Content-Type")
        if auth == "user":
            token = self.bearer(route)
        else:
            self.app_auth(route)
        if style == "rpc":
            arg = self.rpc_arg(route, content_type, body)
        else:
            arg = self.header_arg(route)
            if style == "download":
                if body:
                    raise bad_request(route, "a download takes no request body")
                if content_type not in (None, "", "application/octet-stream", "text/plain; charset=dropbox-cors-hack"):
                    raise bad_request(route, f'Bad HTTP "Content-Type" header: "{content_type}".  Expecting one of '
                                             '"application/octet-stream", "text/plain; charset=dropbox-cors-hack".')
            elif content_type not in ("application/octet-stream", "text/plain; charset=dropbox-cors-hack"):
                raise bad_request(route, f'Bad HTTP "Content-Type" header: "{content_type}".  Expecting one of '
                                         '"application/octet-stream", "text/plain; charset=dropbox-cors-hack".')
        allowed = ARG_FIELDS.get(route)
        if allowed is not None:
            if not isinstance(arg, dict):
                raise bad_request(route, "request body: expected an object")
            for key in arg:
                if key not in allowed:
                    raise bad_request(route, f"request body: unknown field '{key}'")
        handler = getattr(self, "route_" + route.replace("/", "_"))
        if route in ("files/download",):
            return handler(arg)
        if route == "files/upload":
            return 200, handler(arg, body), {}, None
        if route == "auth/token/revoke":
            return 200, handler(token), {}, None
        return 200, handler(arg), {}, None

    def bearer(self, route):
        header = self.headers.get("Authorization")
        if not header:
            raise bad_request(route, 'Must provide HTTP header "Authorization" or URL parameter "authorization".')
        if not header.startswith("Bearer ") or not header[7:].strip():
            raise bad_request(route, "The given OAuth 2 access token is malformed.")
        token = header[7:].strip()
        state = self.store.token_state(token)
        if state != "valid":
            tag = "expired_access_token" if state == "expired" else "invalid_access_token"
            raise ApiError(401, error_body(tag + "/", {".tag": tag}))
        return token

    def app_auth(self, route):
        header = self.headers.get("Authorization") or ""
        try:
            key = base64.b64decode(header[6:]).decode().split(":", 1)[0] if header.startswith("Basic ") else None
        except ValueError:
            key = None
        if key != APP_KEY:
            raise bad_request(route, "Invalid authorization value in HTTP header \"Authorization\": the app key is "
                                     "not a valid app key.")

    def rpc_arg(self, route, content_type, body):
        void = route in VOID_ROUTES
        if void and not body and not content_type:
            return None
        media = (content_type or "").split(";")[0].strip()
        if media != "application/json" and content_type != "text/plain; charset=dropbox-cors-hack":
            raise bad_request(route, f'Bad HTTP "Content-Type" header: "{content_type}".  Expecting one of '
                                     '"application/json", "text/plain; charset=dropbox-cors-hack".')
        try:
            arg = json.loads(body.decode("utf-8"))
        except (ValueError, UnicodeDecodeError):
            raise bad_request(route, "request body: could not decode input as JSON")
        if void and arg is not None:
            raise bad_request(route, "request body: expected null, got value")
        return arg

    def header_arg(self, route):
        raw = self.headers.get("Dropbox-API-Arg")
        if raw is None:
            raise bad_request(route, 'Must provide HTTP header "Dropbox-API-Arg" or URL parameter "arg".')
        # http.server decodes header bytes as Latin-1: anything above 0x7e came in unescaped.
        if any(ord(c) > 0x7e for c in raw):
            raise bad_request(route, 'HTTP header "Dropbox-API-Arg": could not decode input as JSON')
        try:
            return json.loads(raw)
        except ValueError:
            raise bad_request(route, 'HTTP header "Dropbox-API-Arg": could not decode input as JSON')

    @staticmethod
    def check_path(route, path, allow_root=False):
        if not isinstance(path, str):
            raise bad_request(route, "request body: path: expected a string")
        if path == "" and allow_root:
            return ""
        if path.startswith("id:"):
            return path
        if not path.startswith("/") or path.endswith("/") or "//" in path:
            raise bad_request(route, f"request body: path: '{path}' did not match pattern '(/(.|[\\r\\n])*)|(ns:[0-9]+(/.*)?)|(id:.*)'")
        return path

    def resolve(self, path):
        """A path or "id:..." to the lower-case path it names now, or None."""
        if path.startswith("id:"):
            for lower, rec in list(self.store.files.items()) + list(self.store.folders.items()):
                if rec["id"] == path:
                    return lower
            return None
        return path.lower()

    def route_users_get_current_account(self, _arg):
        a = self.store.account
        return {"account_id": ACCOUNT_ID,
                "name": {k: a[k] for k in ("given_name", "surname", "familiar_name", "display_name",
                                           "abbreviated_name")},
                "email": a["email"], "email_verified": True, "disabled": False, "country": a["country"],
                "locale": a["locale"], "referral_link": "https://db.tt/fakeref", "is_paired": False,
                "account_type": {".tag": "basic"},
                "root_info": {".tag": "user", "root_namespace_id": "3235641", "home_namespace_id": "3235641"}}

    def route_files_list_folder(self, arg):
        route = "files/list_folder"
        path = self.check_path(route, arg.get("path"), allow_root=True)
        limit = arg.get("limit")
        if limit is not None and (not isinstance(limit, int) or not 1 <= limit <= 2000):
            raise bad_request(route, "request body: limit: value must be between 1 and 2000")
        lower = self.resolve(path) if path else ""
        if lower is None or (lower and lower not in self.store.folders and lower not in self.store.files):
            raise route_error("path/not_found/..", {".tag": "path", "path": {".tag": "not_found"}})
        if lower in self.store.files:
            raise route_error("path/not_folder/..", {".tag": "path", "path": {".tag": "not_folder"}})
        recursive = bool(arg.get("recursive", False))
        state = {"epoch": self.store.epoch, "path": lower, "recursive": recursive, "limit": limit}
        return self.store.page(state, self.store.listing(lower, recursive), limit)

    def route_files_list_folder_continue(self, arg):
        route = "files/list_folder/continue"
        state = self.store.cursors.get(arg.get("cursor")) if isinstance(arg.get("cursor"), str) else None
        if state is None:
            raise bad_request(route, 'Invalid "cursor" parameter: the cursor could not be decoded')
        if state["epoch"] != self.store.epoch:
            raise route_error("reset/..", {".tag": "reset"})
        if state["path"] and state["path"] not in self.store.folders:
            raise route_error("path/not_found/..", {".tag": "path", "path": {".tag": "not_found"}})
        if state["pending"] is not None:
            entries = state["pending"]
            result = self.store.page(state, entries, state["limit"])
            # The rest of an initial listing is a snapshot: changes made meanwhile follow from its position.
            self.store.cursors[result["cursor"]]["position"] = state["position"]
            return result
        entries = self.store.changes_since(state["position"], state["path"], state["recursive"])
        return self.store.page(state, entries, state["limit"])

    def route_files_download(self, arg):
        route = "files/download"
        path = self.check_path(route, arg.get("path"))
        if path.startswith("rev:"):
            rec = next((r for r in self.store.files.values() if r["rev"] == path[4:]), None)
        else:
            lower = self.resolve(path)
            if lower in self.store.folders:
                raise route_error("path/not_file/..", {".tag": "path", "path": {".tag": "not_file"}})
            rec = self.store.files.get(lower)
        if rec is None:
            raise route_error("path/not_found/..", {".tag": "path", "path": {".tag": "not_found"}})
        return 200, None, {"Dropbox-API-Result": header_json(self.store.file_metadata(rec))}, rec["content"]

    def route_files_upload(self, arg, body):
        route = "files/upload"
        path = self.check_path(route, arg.get("path"))
        mode = arg.get("mode", "add")
        if isinstance(mode, str):
            if mode == "update":
                raise bad_request(route, "request body: mode: 'update' needs a value: use {\".tag\": \"update\", \"update\": rev}")
            mode = {".tag": mode}
        tag = mode.get(".tag") if isinstance(mode, dict) else None
        if tag not in ("add", "overwrite", "update"):
            raise bad_request(route, f"request body: mode: unknown tag '{tag}'")
        if tag == "update" and not (isinstance(mode.get("update"), str) and len(mode["update"]) >= 9):
            raise bad_request(route, "request body: mode: update: expected a revision")
        if "content_hash" in arg and arg["content_hash"] != content_hash(body):
            raise route_error("content_hash_mismatch/", {".tag": "content_hash_mismatch"})
        lower = self.resolve(path)
        if lower is None:
            raise route_error("path/malformed_path/..", {".tag": "path", "reason": {".tag": "malformed_path"},
                                                         "upload_session_id": secrets.token_urlsafe(16)})

        def conflict(kind):
            return route_error(f"path/conflict/{kind}/..", {
                ".tag": "path", "reason": {".tag": "conflict", "conflict": {".tag": kind}},
                "upload_session_id": secrets.token_urlsafe(16)})

        if lower in self.store.folders:
            raise conflict("folder")
        parent = parent_of(lower)
        while parent:
            if parent in self.store.files:
                raise conflict("file_ancestor")
            parent = parent_of(parent)
        existing = self.store.files.get(lower)
        strict = bool(arg.get("strict_conflict", False))
        if existing is not None:
            if existing["content"] == body and not strict:
                return self.store.file_metadata(existing)
            if tag == "add" or (tag == "update" and mode["update"] != existing["rev"]):
                if not arg.get("autorename", False):
                    raise conflict("file")
                stem, dot, ext = path.rpartition(".") if "." in path.rsplit("/", 1)[1] else (path, "", "")
                n = 1
                while (f"{stem} ({n}){dot}{ext}").lower() in self.store.files:
                    n += 1
                path, lower = f"{stem} ({n}){dot}{ext}", f"{stem} ({n}){dot}{ext}".lower()
        elif tag == "update" and strict:
            raise conflict("file")
        display = path if not path.startswith("id:") else existing["path_display"]
        if not self.store.make_folders(display):
            raise conflict("file_ancestor")
        rec = self.store.write(display, body, arg.get("client_modified"))
        return self.store.file_metadata(rec)

    def route_files_delete_v2(self, arg):
        route = "files/delete_v2"
        path = self.check_path(route, arg.get("path"))
        lower = self.resolve(path)
        meta = self.store.metadata(lower) if lower else None
        if meta is None:
            raise route_error("path_lookup/not_found/..", {".tag": "path_lookup", "path_lookup": {".tag": "not_found"}})
        if "parent_rev" in arg and (meta[".tag"] != "file" or meta["rev"] != arg["parent_rev"]):
            raise route_error("path_write/conflict/file/..", {
                ".tag": "path_write", "path_write": {".tag": "conflict", "conflict": {".tag": "file"}}})
        self.store.remove(lower)
        return {"metadata": meta}

    def route_auth_token_revoke(self, token):
        rec = self.store.tokens.get(token)
        if rec is not None:
            rec["state"] = "invalid"
            if rec["refresh"] is not None:
                self.store.refresh_tokens[rec["refresh"]]["revoked"] = True
        return None

    def route_auth_token_from_oauth1(self, arg):
        secret = self.store.oauth1.get(arg.get("oauth1_token"))
        if secret is None or secret != arg.get("oauth1_token_secret"):
            raise route_error("invalid_oauth1_token_info/", {".tag": "invalid_oauth1_token_info"})
        return {"oauth2_token": self.store.issue_access_token()}

    # --- OAuth 2

    def token_route(self, body):
        params = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(self.path).query))
        content_type = (self.headers.get("Content-Type") or "").split(";")[0].strip()
        if body:
            if content_type != "application/x-www-form-urlencoded":
                raise ApiError(400, {"error": "invalid_request",
                                     "error_description": "the token request body must be form-encoded"})
            params.update(urllib.parse.parse_qsl(body.decode("utf-8", "replace")))

        def fail(error, description):
            return ApiError(400, {"error": error, "error_description": description})

        grant = params.get("grant_type")
        if grant == "authorization_code":
            code = self.store.codes.pop(params.get("code", ""), None)
            if code is None:
                raise fail("invalid_grant", "code doesn't exist or has expired")
            if params.get("client_id") != code["client_id"]:
                raise fail("invalid_client", "the code was issued to another client")
            if code["redirect_uri"] is not None and params.get("redirect_uri") != code["redirect_uri"]:
                raise fail("invalid_grant", "redirect_uri mismatch")
            if code["challenge"] is not None:
                verifier = params.get("code_verifier", "")
                digest = base64.urlsafe_b64encode(hashlib.sha256(verifier.encode()).digest()).decode().rstrip("=")
                if not 43 <= len(verifier) <= 128 or digest != code["challenge"]:
                    raise fail("invalid_grant", "invalid code verifier")
            refresh = None
            if code["access_type"] == "offline":
                refresh = "rt." + secrets.token_urlsafe(24)
                self.store.refresh_tokens[refresh] = {"client_id": code["client_id"], "revoked": False}
            answer = {"access_token": self.store.issue_access_token(refresh), "token_type": "bearer",
                      "expires_in": self.store.expires_in, "scope": code["scope"], "uid": "12345",
                      "account_id": ACCOUNT_ID}
            if refresh:
                answer["refresh_token"] = refresh
            return answer
        if grant == "refresh_token":
            refresh = params.get("refresh_token", "")
            rec = self.store.refresh_tokens.get(refresh)
            if rec is None or rec["revoked"]:
                raise fail("invalid_grant", "refresh token is invalid or revoked")
            if params.get("client_id") != rec["client_id"]:
                raise fail("invalid_client", "the refresh token was issued to another client")
            return {"access_token": self.store.issue_access_token(refresh), "token_type": "bearer",
                    "expires_in": self.store.expires_in}
        raise fail("unsupported_grant_type", f"grant_type {grant!r} is not supported")

    def authorize(self):
        """The consent page, approved at once: redirects as Dropbox does after the user clicks Allow."""
        query = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(self.path).query))
        kind, client_id, redirect = query.get("response_type"), query.get("client_id"), query.get("redirect_uri")
        state = query.get("state")
        with self.store.lock:
            self.log_request_entry("oauth2/authorize", b"")["status"] = 302
            if kind == "code":
                code = secrets.token_urlsafe(32)
                challenge = query.get("code_challenge")
                if challenge is not None and query.get("code_challenge_method") != "S256":
                    return self.send(400, b"code_challenge_method must be S256", "text/plain; charset=utf-8")
                self.store.codes[code] = {"client_id": client_id, "redirect_uri": redirect, "challenge": challenge,
                                          "access_type": query.get("token_access_type", "online"),
                                          "scope": query.get("scope", "account_info.read files.content.read "
                                                             "files.content.write files.metadata.read")}
                if redirect is None:
                    page = f'<html><body><p>Enter this code into the app:</p><code id="code">{code}</code></body></html>'
                    return self.send(200, page.encode(), "text/html; charset=utf-8")
                params = {"code": code}
                if state is not None:
                    params["state"] = state
                location = redirect + ("&" if "?" in redirect else "?") + urllib.parse.urlencode(params)
            elif kind == "token" and redirect:
                params = {"access_token": self.store.issue_access_token(), "token_type": "bearer",
                          "expires_in": str(self.store.expires_in), "account_id": ACCOUNT_ID, "uid": "12345"}
                if state is not None:
                    params["state"] = state
                location = redirect + "#" + urllib.parse.urlencode(params)
            else:
                return self.send(400, b"unsupported response_type or missing redirect_uri", "text/plain; charset=utf-8")
        self.send(302, b"", None, {"Location": location})

    # --- controls

    def control(self, name, arg):
        s = self.store
        with s.lock:
            if name == "state":
                files = {}
                for p, rec in s.files.items():
                    item = {"rev": rec["rev"], "path_display": rec["path_display"], "id": rec["id"],
                            "content_base64": base64.b64encode(rec["content"]).decode()}
                    try:
                        item["content"] = rec["content"].decode("utf-8")
                    except UnicodeDecodeError:
                        pass
                    files[p] = item
                return self.send_json(200, {"files": files, "folders": sorted(s.folders),
                                            "journal_length": len(s.journal), "cursors": len(s.cursors)})
            if name == "files":
                content = (base64.b64decode(arg["content_base64"]) if "content_base64" in arg
                           else arg.get("content", "").encode("utf-8"))
                if not s.make_folders(arg["path"]):
                    return self.send(409, b"a file is in the way", "text/plain; charset=utf-8")
                return self.send_json(200, s.file_metadata(s.write(arg["path"], content)))
            if name == "delete":
                return self.send_json(200, s.remove(arg["path"].lower()))
            if name == "release":
                for released in s.held:
                    released.set()
                count, s.held = len(s.held), []
                return self.send_json(200, {"count": count})
            if name == "reset":
                s.epoch += 1
                return self.send_json(200, {"epoch": s.epoch})
            if name == "faults":
                fault = {"route": arg.get("route", "*"), "kind": str(arg["kind"]), "count": int(arg.get("count", 1)),
                         "status": int(arg.get("status", 500)), "retry_after": int(arg.get("retry_after", 1)),
                         "body": arg.get("body"), "text": bool(arg.get("text", False))}
                s.faults.append(fault)
                return self.send_json(200, fault)
            if name == "tokens":
                if "token" in arg:
                    s.tokens.setdefault(arg["token"], {"refresh": None})
                    s.tokens[arg["token"]].update(state=arg.get("state", "valid"), expires_at=None)
                if "refresh_token" in arg:
                    s.refresh_tokens[arg["refresh_token"]] = {"client_id": arg.get("client_id", APP_KEY),
                                                              "revoked": bool(arg.get("revoked", False))}
                if "oauth1_token" in arg:
                    s.oauth1[arg["oauth1_token"]] = arg.get("oauth1_token_secret")
                if "expires_in" in arg:
                    s.expires_in = int(arg["expires_in"])
                return self.send_json(200, {"tokens": {t: s.token_state(t) for t in s.tokens}})
            if name == "account":
                s.account.update(arg)
                return self.send_json(200, s.account)
            if name == "page_size":
                s.page_size = int(arg["limit"])
                return self.send_json(200, {"limit": s.page_size})
            if name == "requests/clear":
                s.requests.clear()
                return self.send_json(200, [])
        self.send(404, b"unknown control", "text/plain; charset=utf-8")


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--api-port", type=int, default=0)
    parser.add_argument("--content-port", type=int, default=0)
    parser.add_argument("--token", action="append", default=[], help="an access token that is valid from the start")
    parser.add_argument("--page-size", type=int, default=500, help="the largest listing page")
    parser.add_argument("--watch-stdin", action="store_true", help="exit when stdin closes")
    args = parser.parse_args()

    Handler.store = Store(args.token, args.page_size)
    servers = {}
    for role, port in (("api", args.api_port), ("content", args.content_port)):
        handler = type(role.capitalize() + "Handler", (Handler,), {"host_role": role})
        servers[role] = Server(("127.0.0.1", port), handler)
        threading.Thread(target=servers[role].serve_forever, daemon=True).start()
    print(json.dumps({"api_port": servers["api"].server_address[1],
                      "content_port": servers["content"].server_address[1]}), flush=True)
    if args.watch_stdin:
        while sys.stdin.buffer.read(4096):
            pass
        os._exit(0)
    threading.Event().wait()


if __name__ == "__main__":
    main()
