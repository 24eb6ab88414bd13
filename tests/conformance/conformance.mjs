// Drives the tests' local Dropbox server with Dropbox's official JavaScript SDK: every reply the server gives,
// success or error, must be one the SDK accepts and reads as Dropbox's own. Exits 0 when all checks pass,
// 77 (skipped) when `npm ci` has not installed the SDK here.
import { spawn } from 'node:child_process';
import { createHash, randomBytes } from 'node:crypto';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';
import path from 'node:path';
import assert from 'node:assert/strict';

let sdk;
try {
  sdk = await import('dropbox');
} catch {
  console.error('The Dropbox SDK is not installed: run `npm ci` in tests/conformance');
  process.exit(77);
}
const { Dropbox, DropboxAuth, DropboxResponseError } = sdk;

const here = path.dirname(fileURLToPath(import.meta.url));
const server = spawn('/usr/bin/python3', [path.join(here, '..', 'fakes', 'fakedropbox.py'), '--watch-stdin',
  '--token', 'valid-token', '--token', 'expired-token'], { stdio: ['pipe', 'pipe', 'inherit'] });
const ports = JSON.parse(await new Promise((resolve) => createInterface({ input: server.stdout }).once('line', resolve)));
const api = `http://127.0.0.1:${ports.api_port}`;

// The SDK builds https://api-fake.test/2/... and https://api-content-fake.test/2/...; each goes to its port.
const fetchHere = (url, init) => {
  const u = new URL(url);
  const port = u.hostname === 'api-content-fake.test' ? ports.content_port : ports.api_port;
  return fetch(`http://127.0.0.1:${port}${u.pathname}${u.search}`, init);
};
const client = (accessToken) => new Dropbox({ accessToken, domain: 'fake.test', fetch: fetchHere });
const control = async (name, body) => (await fetch(`${api}/_control/${name}`, {
  method: body === undefined ? 'GET' : 'POST', body: body === undefined ? undefined : JSON.stringify(body),
})).json();

const failures = [];
async function check(name, body) {
  try {
    await body();
    console.log(`ok - ${name}`);
  } catch (error) {
    failures.push(name);
    console.log(`not ok - ${name}\n  ${(error && error.stack) || error}`);
  }
}
async function rejects(promise, status, inspect) {
  try {
    await promise;
  } catch (error) {
    assert.ok(error instanceof DropboxResponseError, `a DropboxResponseError, not ${error}`);
    assert.equal(error.status, status);
    inspect(error);
    return;
  }
  assert.fail(`expected HTTP ${status}`);
}

const dbx = client('valid-token');
let rev;

await check('get_current_account', async () => {
  const { result, status } = await dbx.usersGetCurrentAccount();
  assert.equal(status, 200);
  assert.equal(result.account_id.length, 40);
  assert.equal(result.name.display_name, 'Zoë Brimvale');
});

await check('list_folder of a missing folder is path/not_found', () =>
  rejects(dbx.filesListFolder({ path: '/sync', recursive: true }), 409, (e) => {
    assert.equal(e.error.error['.tag'], 'path');
    assert.equal(e.error.error.path['.tag'], 'not_found');
  }));

await check('upload add, with a name beyond ASCII', async () => {
  const { result } = await dbx.filesUpload({ path: '/sync/2024-01.json', contents: '{"a":1}', mode: 'add',
    autorename: false, mute: true });
  assert.equal(result.path_lower, '/sync/2024-01.json');
  assert.match(result.rev, /^[0-9a-f]{9,}$/);
  rev = result.rev;
  const other = await dbx.filesUpload({ path: '/sync/Zoë-😀.json', contents: Buffer.from('x'), mode: 'add' });
  assert.equal(other.result.name, 'Zoë-😀.json');
});

await check('upload update over the current revision', async () => {
  const { result } = await dbx.filesUpload({ path: '/sync/2024-01.json', contents: '{"a":2}',
    mode: { '.tag': 'update', update: rev }, autorename: false });
  assert.notEqual(result.rev, rev);
  rev = result.rev;
});

await check('upload update over an old revision is path/conflict/file', async () => {
  await control('files', { path: '/sync/2024-01.json', content: 'theirs' });
  await rejects(dbx.filesUpload({ path: '/sync/2024-01.json', contents: 'mine',
    mode: { '.tag': 'update', update: rev }, autorename: false }), 409, (e) => {
    assert.equal(e.error.error['.tag'], 'path');
    assert.equal(e.error.error.reason['.tag'], 'conflict');
    assert.equal(e.error.error.reason.conflict['.tag'], 'file');
  });
});

await check('download with Dropbox-API-Result', async () => {
  const { result } = await dbx.filesDownload({ path: '/sync/2024-01.json' });
  assert.equal(result.fileBinary.toString(), 'theirs');
  assert.equal(result.path_lower, '/sync/2024-01.json');
  const expected = createHash('sha256').update(createHash('sha256').update('theirs').digest()).digest('hex');
  assert.equal(result.content_hash, expected);
});

await check('download of a missing file is path/not_found', () =>
  rejects(dbx.filesDownload({ path: '/sync/2030-01.json' }), 409, (e) => {
    assert.equal(e.error.error.path['.tag'], 'not_found');
  }));

let cursor;
await check('list_folder pages with has_more and continue', async () => {
  let page = (await dbx.filesListFolder({ path: '/sync', recursive: true, limit: 1 })).result;
  const entries = [...page.entries];
  while (page.has_more) {
    page = (await dbx.filesListFolderContinue({ cursor: page.cursor })).result;
    entries.push(...page.entries);
  }
  cursor = page.cursor;
  assert.deepEqual(entries.map((e) => e['.tag']).sort(), ['file', 'file', 'folder']);
});

await check('continue gives changes, deletions as deleted entries', async () => {
  const { result } = await dbx.filesDeleteV2({ path: '/sync/2024-01.json' });
  assert.equal(result.metadata['.tag'], 'file');
  const changes = (await dbx.filesListFolderContinue({ cursor })).result;
  assert.deepEqual(changes.entries.map((e) => `${e['.tag']}:${e.path_lower}`), ['deleted:/sync/2024-01.json']);
  cursor = changes.cursor;
});

await check('delete of a missing file is path_lookup/not_found', () =>
  rejects(dbx.filesDeleteV2({ path: '/sync/2024-01.json' }), 409, (e) => {
    assert.equal(e.error.error['.tag'], 'path_lookup');
    assert.equal(e.error.error.path_lookup['.tag'], 'not_found');
  }));

await check('a reset cursor is reset', async () => {
  await control('reset', {});
  await rejects(dbx.filesListFolderContinue({ cursor }), 409, (e) => assert.equal(e.error.error['.tag'], 'reset'));
});

await check('429 carries Retry-After and a RateLimitError', async () => {
  await control('faults', { route: 'users/get_current_account', kind: '429', retry_after: 7 });
  await rejects(dbx.usersGetCurrentAccount(), 429, (e) => {
    assert.equal(e.headers.get('retry-after'), '7');
    assert.equal(e.error.error.reason['.tag'], 'too_many_requests');
    assert.equal(e.error.error.retry_after, 7);
  });
});

await check('5xx is an HTTP error', async () => {
  await control('faults', { route: 'files/list_folder', kind: 'status', status: 503 });
  await rejects(dbx.filesListFolder({ path: '/sync' }), 503, () => {});
});

await check('an expired token is expired_access_token', async () => {
  await control('tokens', { token: 'expired-token', state: 'expired' });
  await rejects(client('expired-token').usersGetCurrentAccount(), 401,
    (e) => assert.equal(e.error.error['.tag'], 'expired_access_token'));
});

await check('an unknown token is invalid_access_token', () =>
  rejects(client('no-such-token').filesListFolder({ path: '/sync' }), 401,
    (e) => assert.equal(e.error.error['.tag'], 'invalid_access_token')));

await check('authorization code with PKCE, refresh, revoke', async () => {
  const auth = new DropboxAuth({ clientId: 'q4mzk8ewtdrn2ya', domain: 'fake.test', fetch: fetchHere });
  const redirect = 'http://127.0.0.1:53682/callback';
  const page = new URL(await auth.getAuthenticationUrl(redirect, 'st4te', 'code', 'offline', null, 'none', true));
  const consent = await fetch(`${api}/oauth2/authorize${page.search}`, { redirect: 'manual' });
  const back = new URL(consent.headers.get('location'));
  assert.equal(back.searchParams.get('state'), 'st4te');
  const { result: tokens } = await auth.getAccessTokenFromCode(redirect, back.searchParams.get('code'));
  assert.ok(tokens.access_token && tokens.refresh_token);
  assert.equal(tokens.expires_in, 14400);

  // A client holding only the refresh token refreshes before its first call.
  const refreshed = new Dropbox({ clientId: 'q4mzk8ewtdrn2ya', refreshToken: tokens.refresh_token,
    domain: 'fake.test', fetch: fetchHere });
  assert.equal((await refreshed.usersGetCurrentAccount()).status, 200);
  const { result } = await refreshed.authTokenRevoke();
  assert.equal(result, null);
  await rejects(refreshed.usersGetCurrentAccount(), 401,
    (e) => assert.equal(e.error.error['.tag'], 'invalid_access_token'));
});

await check('a spent code is invalid_grant', async () => {
  const auth = new DropboxAuth({ clientId: 'q4mzk8ewtdrn2ya', domain: 'fake.test', fetch: fetchHere });
  auth.codeVerifier = randomBytes(64).toString('hex').slice(0, 128);
  await rejects(auth.getAccessTokenFromCode('http://127.0.0.1:53682/callback', 'spent'), 400,
    (e) => assert.equal(e.error.error, 'invalid_grant'));
});

server.stdin.end();
server.kill();
if (failures.length) {
  console.log(`${failures.length} check(s) failed: ${failures.join(', ')}`);
  process.exit(1);
}
console.log('every reply accepted by the JavaScript SDK');
