#!/usr/bin/python3
"""Drives the tests' local Dropbox server with Dropbox's official Python SDK (Debian python3-dropbox), the
stricter of the two official clients: it asserts the exact Content-Type of JSON replies and reads every reply
through the API's own validators. Beyond that, each raw reply is decoded once more with strict validation, so
a field the API does not define, or a value out of its range, fails here. Exits 0 when all checks pass."""

import json
import os
import subprocess
import sys
import traceback
import urllib.request

os.environ.update(DROPBOX_API_HOST="api.fake.test", DROPBOX_API_CONTENT_HOST="content.fake.test",
                  DROPBOX_WEB_HOST="www.fake.test")

import dropbox  # noqa: E402  (reads the hosts above when imported)
import requests  # noqa: E402
from dropbox import stone_serializers  # noqa: E402
from dropbox.auth import AuthError_validator, RateLimitError_validator  # noqa: E402
from dropbox.files import (DeleteError_validator, DeleteResult_validator, DownloadError_validator,  # noqa: E402
                           FileMetadata_validator, ListFolderContinueError_validator, ListFolderError_validator,
                           ListFolderResult_validator, UploadError_validator)
from dropbox.users import FullAccount_validator  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
server = subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "..", "fakes", "fakedropbox.py"), "--watch-stdin",
                           "--token", "valid-token", "--token", "expired-token"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE)
ports = json.loads(server.stdout.readline())
HOSTS = {"api.fake.test": ports["api_port"], "content.fake.test": ports["content_port"]}
API = "http://127.0.0.1:%d" % ports["api_port"]
CONTENT = "http://127.0.0.1:%d" % ports["content_port"]


class Loopback(requests.adapters.HTTPAdapter):
    """Sends the SDK's https://api.fake.test/... and https://content.fake.test/... to the server's ports."""

    def send(self, request, **kwargs):
        url = requests.utils.urlparse(request.url)
        request.url = "http://127.0.0.1:%d%s%s" % (HOSTS[url.hostname], url.path, "?" + url.query if url.query else "")
        return super().send(request, **kwargs)


def session():
    s = requests.Session()
    s.mount("https://", Loopback())
    return s


def client(token):
    return dropbox.Dropbox(oauth2_access_token=token, session=session(), max_retries_on_error=0,
                           max_retries_on_rate_limit=0)


def control(name, body=None):
    data = None if body is None else json.dumps(body).encode()
    with urllib.request.urlopen(urllib.request.Request(API + "/_control/" + name, data=data)) as answer:
        return json.load(answer)


def raw(host, route, token="valid-token", arg=None, body=b"", header_arg=None):
    """The server's reply to a request as the SDK sends it, for strict validation."""
    headers = {"Authorization": "Bearer " + token}
    if header_arg is not None:
        headers["Dropbox-API-Arg"] = json.dumps(header_arg)
        if body:
            headers["Content-Type"] = "application/octet-stream"
    else:
        headers["Content-Type"] = "application/json"
        body = json.dumps(arg).encode()
    return requests.post(host + "/2/" + route, headers=headers, data=body)


def strict(validator, value):
    return stone_serializers.json_compat_obj_decode(validator, value, strict=True)


failures = []


def check(name):
    def run(body):
        try:
            body()
            print("ok - " + name)
        except Exception:  # noqa: BLE001  (every failure is reported, then the next check runs)
            failures.append(name)
            print("not ok - " + name)
            traceback.print_exc(file=sys.stdout)
    return run


dbx = client("valid-token")
state = {}


@check("get_current_account")
def _():
    account = dbx.users_get_current_account()
    assert account.name.display_name == "Zoë Brimvale"
    strict(FullAccount_validator, raw(API, "users/get_current_account", arg=None).json())


@check("list_folder of a missing folder is path/not_found")
def _():
    try:
        dbx.files_list_folder("/sync", recursive=True)
        raise AssertionError("no error")
    except dropbox.exceptions.ApiError as e:
        assert e.error.is_path() and e.error.get_path().is_not_found()
    strict(ListFolderError_validator, raw(API, "files/list_folder", arg={"path": "/sync"}).json()["error"])


@check("upload add, update, and the conflict over an old revision")
def _():
    mode_add = dropbox.files.WriteMode.add
    first = dbx.files_upload(b'{"a":1}', "/sync/2024-01.json", mode=mode_add, autorename=False, mute=True)
    second = dbx.files_upload(b'{"a":2}', "/sync/2024-01.json", mode=dropbox.files.WriteMode.update(first.rev))
    assert second.rev != first.rev
    dbx.files_upload(b"x", "/sync/Zoë-😀.json", mode=mode_add)
    control("files", {"path": "/sync/2024-01.json", "content": "theirs"})
    try:
        dbx.files_upload(b"mine", "/sync/2024-01.json", mode=dropbox.files.WriteMode.update(second.rev))
        raise AssertionError("no conflict")
    except dropbox.exceptions.ApiError as e:
        assert e.error.is_path() and e.error.get_path().reason.get_conflict().is_file()
    reply = raw(CONTENT, "files/upload", body=b"mine",
                header_arg={"path": "/sync/2024-01.json", "mode": {".tag": "update", "update": second.rev}})
    assert reply.status_code == 409
    strict(UploadError_validator, reply.json()["error"])
    reply = raw(CONTENT, "files/upload", body=b"new", header_arg={"path": "/sync/2024-02.json", "mode": "add"})
    strict(FileMetadata_validator, reply.json())


@check("download with its Dropbox-API-Result, and path/not_found")
def _():
    metadata, response = dbx.files_download("/sync/2024-01.json")
    assert response.content == b"theirs" and metadata.path_lower == "/sync/2024-01.json"
    reply = raw(CONTENT, "files/download", header_arg={"path": "/sync/2024-01.json"})
    strict(FileMetadata_validator, json.loads(reply.headers["Dropbox-API-Result"]))
    try:
        dbx.files_download("/sync/2030-01.json")
        raise AssertionError("no error")
    except dropbox.exceptions.ApiError as e:
        assert e.error.get_path().is_not_found()
    strict(DownloadError_validator, raw(CONTENT, "files/download", header_arg={"path": "/sync/x"}).json()["error"])


@check("list_folder pages, continue gives changes, reset")
def _():
    page = dbx.files_list_folder("/sync", recursive=True, limit=1)
    tags = [type(e).__name__ for e in page.entries]
    while page.has_more:
        page = dbx.files_list_folder_continue(page.cursor)
        tags += [type(e).__name__ for e in page.entries]
    assert sorted(tags) == ["FileMetadata", "FileMetadata", "FileMetadata", "FolderMetadata"], tags
    strict(ListFolderResult_validator, raw(API, "files/list_folder", arg={"path": "/sync", "recursive": True}).json())
    deleted = dbx.files_delete_v2("/sync/2024-02.json")
    assert deleted.metadata.path_lower == "/sync/2024-02.json"
    changes = dbx.files_list_folder_continue(page.cursor)
    assert [type(e).__name__ for e in changes.entries] == ["DeletedMetadata"]
    strict(ListFolderResult_validator, raw(API, "files/list_folder/continue", arg={"cursor": page.cursor}).json())
    control("reset", {})
    try:
        dbx.files_list_folder_continue(changes.cursor)
        raise AssertionError("no reset")
    except dropbox.exceptions.ApiError as e:
        assert e.error.is_reset()
    strict(ListFolderContinueError_validator,
           raw(API, "files/list_folder/continue", arg={"cursor": changes.cursor}).json()["error"])


@check("delete_v2 and path_lookup/not_found")
def _():
    reply = raw(API, "files/delete_v2", arg={"path": "/sync/Zoë-😀.json"})
    strict(DeleteResult_validator, reply.json())
    try:
        dbx.files_delete_v2("/sync/2024-02.json")
        raise AssertionError("no error")
    except dropbox.exceptions.ApiError as e:
        assert e.error.is_path_lookup() and e.error.get_path_lookup().is_not_found()
    strict(DeleteError_validator, raw(API, "files/delete_v2", arg={"path": "/sync/none"}).json()["error"])


@check("429 as JSON and as text, and 5xx")
def _():
    control("faults", {"route": "users/get_current_account", "kind": "429", "retry_after": 7})
    try:
        dbx.users_get_current_account()
        raise AssertionError("no rate limit")
    except dropbox.exceptions.RateLimitError as e:
        assert e.backoff == 7 and e.error.reason.is_too_many_requests()
    control("faults", {"route": "users/get_current_account", "kind": "429", "retry_after": 3, "text": True})
    try:
        dbx.users_get_current_account()
        raise AssertionError("no rate limit")
    except dropbox.exceptions.RateLimitError as e:
        assert e.backoff == 3 and e.error is None
    control("faults", {"route": "files/list_folder", "kind": "429"})
    strict(RateLimitError_validator, raw(API, "files/list_folder", arg={"path": "/sync"}).json()["error"])
    control("faults", {"route": "files/list_folder", "kind": "status", "status": 503})
    try:
        dbx.files_list_folder("/sync")
        raise AssertionError("no server error")
    except dropbox.exceptions.InternalServerError as e:
        assert e.status_code == 503


@check("expired and invalid tokens")
def _():
    control("tokens", {"token": "expired-token", "state": "expired"})
    for token, tag in (("expired-token", "expired_access_token"), ("no-such-token", "invalid_access_token")):
        try:
            client(token).users_get_current_account()
            raise AssertionError("no auth error")
        except dropbox.exceptions.AuthError as e:
            assert e.error._tag == tag
        strict(AuthError_validator, raw(API, "users/get_current_account", token=token, arg=None).json()["error"])


@check("authorization code with PKCE, refresh, revoke, and a revoked refresh token")
def _():
    flow = dropbox.DropboxOAuth2FlowNoRedirect("q4mzk8ewtdrn2ya", use_pkce=True, token_access_type="offline")
    flow.requests_session = session()
    page = requests.utils.urlparse(flow.start())
    consent = requests.get(API + "/oauth2/authorize?" + page.query, allow_redirects=False)
    code = consent.text.split('<code id="code">')[1].split("</code>")[0]
    result = flow.finish(code)
    assert result.refresh_token and result.account_id and result.access_token
    refreshed = dropbox.Dropbox(oauth2_refresh_token=result.refresh_token, app_key="q4mzk8ewtdrn2ya",
                                session=session(), max_retries_on_error=0)
    assert refreshed.users_get_current_account().email == "zoe@example.com"
    refreshed.auth_token_revoke()
    try:
        refreshed.refresh_access_token()
        raise AssertionError("refresh after revoke")
    except dropbox.exceptions.AuthError as e:
        assert e.error.is_invalid_access_token()


server.stdin.close()
server.wait(10)
if failures:
    print("%d check(s) failed: %s" % (len(failures), ", ".join(failures)))
    sys.exit(1)
print("every reply accepted by the Python SDK")
