// An assistant's session, as the official SDK runs it: node assistant.mjs SETTINGS, where
// SETTINGS is JSON with either "launcher" (a path) and "environment" or "endpoint" and
// "token". It asks for what only the test can do by a line on standard output, and
// goes on when a line comes back. Any failure ends it with 1.
import assert from 'node:assert/strict';
import { createInterface } from 'node:readline';

import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { StreamableHTTPClientTransport } from '@modelcontextprotocol/sdk/client/streamableHttp.js';

const settings = JSON.parse(process.argv[2]);
const asked = createInterface({ input: process.stdin })[Symbol.asyncIterator]();
const called = new Set();

function transport() {
  if (settings.launcher) {
    return new StdioClientTransport({ command: settings.launcher, env: settings.environment });
  }
  const headers = { Authorization: `Bearer ${settings.token}` };
  return new StreamableHTTPClientTransport(new URL(settings.endpoint), { requestInit: { headers } });
}

const client = new Client({ name: 'vorlane-client-tests', version: '1' });

/** Calls a tool and gives its own result. */
async function call(name, args = {}) {
  called.add(name);
  const result = await client.callTool({ name, arguments: args });
  assert.equal(result.isError, false);
  assert.equal(result.content[0].type, 'text');
  return JSON.parse(result.content[0].text);
}

/** Has the test do something to the agent, and waits until it is done. */
async function request(what) {
  console.log(what);
  assert.equal((await asked.next()).value, 'done');
}

async function listsWhatStrictClientsTake() {
  const { tools } = await client.listTools();
  const names = tools.map((tool) => tool.name);
  assert.deepEqual(names, [...names].sort());
  const count = (namespace) => names.filter((name) => name.startsWith(`${namespace}_`)).length;
  assert.deepEqual([count('ledgerly'), count('sceneward'), count('vorlane'), names.length], [18, 25, 3, 46]);
  for (const { name, description, inputSchema } of tools) {
    assert.ok(description.length > 10, name);
    assert.equal(inputSchema.type, 'object', name);
    assert.equal(Object.getPrototypeOf(inputSchema.properties ?? null), Object.prototype, name);
    assert.ok(inputSchema.required === undefined || Array.isArray(inputSchema.required), name);
    for (const key of inputSchema.required ?? []) assert.ok(key in inputSchema.properties, `${name} ${key}`);
  }
  return names;
}

async function worksOnASheet() {
  const imported = await call('ledgerly_import_sheet', {
    title: 'Night exterior &amp; rain',
    request: 'Everything for the pier scene',
    categories: [
      { name: 'Light', items: [{ name: 'HMI 4K', qty: 2, price: 310.5, tags: ['day rate'], vendor: 'Lumen' }] },
      { name: 'Grip', items: [{ name: 'C-stand', quantity: 12, links: [{ url: 'example.com/stand' }] }] },
    ],
  });
  assert.deepEqual([imported.categoriesImported, imported.itemsImported], [2, 2]);
  const sheetId = imported.sheet.id;
  assert.equal(imported.sheet.title, 'Night exterior & rain');
  const [light, grip] = (await call('ledgerly_list_categories', { sheetId })).categories;
  const { item } = await call('ledgerly_add_item', { sheetId, categoryId: light.id, name: 'Tungsten 2K', qty: 1 });
  await call('ledgerly_update_item', { sheetId, itemId: item.id, patch: { notes: 'Spare bulb' } });
  assert.equal((await call('ledgerly_toggle_check', { sheetId, itemId: item.id })).checked, true);
  await call('ledgerly_rename_category', { sheetId, categoryId: grip.id, newName: 'Grip and rigging' });
  assert.equal((await call('ledgerly_list_items', { sheetId })).items.length, 3);
  const other = (await call('ledgerly_create_sheet', { title: 'Second unit' })).sheet.id;
  const stray = (await call('ledgerly_add_item', { sheetId: other, categoryName: 'Sound', name: 'Boom' })).item.id;
  await call('ledgerly_delete_item', { sheetId: other, itemId: stray });
  await call('ledgerly_delete_category', { sheetId: other, categoryName: 'sound' });
  assert.ok((await call('ledgerly_list_sheets')).sheets.some((sheet) => sheet.id === sheetId));
  const sheet = await call('ledgerly_get_sheet', { sheetId });
  assert.deepEqual(sheet.categories.map((category) => category.name), ['Light', 'Grip and rigging']);
  assert.equal(sheet.categories[0].items[1].notes, 'Spare bulb');
  assert.equal(sheet.categories[1].items[0].qty, 12);
  return sheetId;
}

async function reachesTheCloud() {
  const { hits } = await call('ledgerly_find_attachments', { query: 'camera package', types: ['pdf', 'image'] });
  assert.deepEqual(hits.map((hit) => hit.type).sort(), ['image', 'pdf']);
  const ref = (type) => hits.find((hit) => hit.type === type).ref;
  const outline = await call('ledgerly_read_attachment', { ref: ref('pdf'), mode: 'outline' });
  assert.equal(outline.pages.length, 2);
  const picture = await client.callTool({ name: 'ledgerly_read_attachment', arguments: { ref: ref('image'), mode: 'image' } });
  assert.deepEqual(picture.content.map((part) => part.type), ['text', 'image']);
  assert.equal(Buffer.from(picture.content[1].data, 'base64').toString('latin1', 1, 4), 'PNG');
  const { passages } = await call('ledgerly_search_attachment_text', { query: 'frame rates', nameQuery: 'camera package' });
  assert.ok(passages.length > 0);
  // The sheet of a session that has just begun is not in the cloud yet.
  await assert.rejects(call('ledgerly_attach_existing', {
    sheetId: (await call('ledgerly_list_sheets')).sheets[0].id,
    sources: [{ ref: ref('pdf'), name: 'Manual', newItem: { category: 'Docs', name: 'Manual' } }],
  }), { message: /has not synced to Ledgerly yet/ });
  let lists = [];
  while (lists.length === 0) ({ lists } = await call('ledgerly_search_ai_lists', { query: 'pier scene' }));
  assert.equal((await call('ledgerly_get_ai_list', { id: String(lists[0].id) })).list.name, 'Night exterior & rain');
}

async function worksOnAScene() {
  const created = await call('sceneward_create_scene', {
    projectId: '9B2F6C1E-0000-4000-8000-' + String(process.pid).padStart(12, '0'),
    name: 'Pier', locationId: 'pier', sceneNumber: '12', intExt: 'EXT.', timeOfDay: 'NIGHT',
  });
  const sceneId = created.scene.id;
  assert.equal(sceneId, sceneId.toLowerCase());
  const { shape } = await call('sceneward_create_shape', { sceneId, shape: { kind: 'light', x: 1, y: 2 } });
  await call('sceneward_update_shape', { sceneId, shapeId: shape.id, patch: { x: 4 } });
  assert.equal((await call('sceneward_get_shape', { sceneId, shapeId: shape.id })).shape.x, 4);
  const ops = [{ op: 'create_shape', shape: { id: 'wall-1', kind: 'wall' } }, { op: 'delete_shape', shapeId: 'gone' }];
  assert.equal((await call('sceneward_bulk_apply', { sceneId, ops })).applied, 2);
  await call('sceneward_delete_shape', { sceneId, shapeId: 'wall-1' });
  assert.equal((await call('sceneward_list_shapes', { sceneId, kind: 'light' })).count, 1);

  const { shot } = await call('sceneward_create_shot', { sceneId, name: 'Shot 2', parentFolderId: null });
  const { cue } = await call('sceneward_create_cue', { sceneId, parentFolderId: shot.id, name: 'Push in', atSeconds: 2 });
  await call('sceneward_upsert_keyframe', { sceneId, cueId: cue.id, shapeId: shape.id, keyframe: { x: 9 } });
  await call('sceneward_retime_cue', { sceneId, cueId: cue.id, atSeconds: 3.5 });
  assert.equal((await call('sceneward_list_shots', { sceneId })).count, 2);
  assert.equal((await call('sceneward_list_cues', { sceneId, shotId: shot.id })).cues[0].atSeconds, 3.5);
  assert.deepEqual((await call('sceneward_get_cue', { sceneId, cueId: cue.id })).cue, { [shape.id]: { x: 9 } });
  assert.equal((await call('sceneward_list_scenes', { projectId: sceneId })).scenes[0].sceneNumber, '12');
  assert.equal((await call('sceneward_list_projects', { limit: 1 })).projects[0].id, sceneId);
  const scene = await call('sceneward_get_scene', { sceneId: sceneId.toUpperCase() });
  assert.deepEqual([scene.shapes.length, scene.folders.length, scene.layers.length], [1, 3, 11]);
  return sceneId;
}

async function asksForTheRest(sceneId, names) {
  const diagram = { projectId: sceneId, imageBase64: Buffer.from('not an image').toString('base64') };
  assert.equal((await call('sceneward_ingest_diagram', diagram)).status, 'no_provider');
  assert.deepEqual((await call('sceneward_list_snapshots', { sceneId })).snapshots, []);
  for (const [name, args] of [
    ['sceneward_rollback_snapshot', { sceneId, versionId: 1 }],
    ['sceneward_ingest_script', { projectId: sceneId, scriptText: 'EXT. PIER - NIGHT' }],
    ['sceneward_propose_lighting_plan', { sceneId }],
    ['sceneward_propose_shotlist', { sceneId }],
  ]) {
    assert.equal((await call(name, args)).status, 'phase1_stub', name);
  }
  assert.equal((await call('sceneward_set_workflow_stage', { sceneId, stage: 'Blocking' })).applied, true);
  const capabilities = await call('sceneward_describe_capabilities', {});
  assert.deepEqual(capabilities.tools.map((tool) => tool.name), names);
  const profile = { email: settings.email, mcp_access: true, name: 'Somebody', sub: 'auth0|ana' };
  assert.deepEqual(await call('vorlane_get_user'), profile);
  assert.deepEqual((await call('vorlane_get_recent', { limit: 5 })).recents, []);
  assert.deepEqual(await call('vorlane_get_context'), { ledgerly: null, sceneward: null });
}

async function failsWithTheReason() {
  await assert.rejects(client.callTool({ name: 'ledgerly_get_sheet', arguments: { sheetId: 'gone' } }), {
    code: -32603,
    message: /sheet gone not found/,
  });
}

async function keepsFiftyCallsApart(sheetId) {
  const before = (await call('ledgerly_list_items', { sheetId })).items.length;
  const answers = await Promise.all(Array.from({ length: 50 }, (_, i) =>
    i % 2 === 0 ? call('ledgerly_add_item', { sheetId, categoryName: 'Light', name: `Lamp ${i}` })
                : call('ledgerly_list_items', { sheetId })));
  answers.forEach((answer, i) => assert.equal(answer.item?.name, i % 2 === 0 ? `Lamp ${i}` : undefined));
  assert.equal((await call('ledgerly_list_items', { sheetId })).items.length, before + 25);
}

/** The session goes on over a kill and a restart of the agent, and says so meanwhile. */
async function outlivesTheAgent(sheetId, sceneId) {
  const readAll = async () => [await call('ledgerly_get_sheet', { sheetId }), await call('sceneward_get_scene', { sceneId })];
  const before = await readAll();
  await request('kill');
  await assert.rejects(call('ledgerly_list_sheets'), { code: -32603, message: /Open Vorlane, then try again/ });
  await request('start');
  assert.deepEqual(await readAll(), before);
}

await client.connect(transport());
const names = await listsWhatStrictClientsTake();
const sheetId = await worksOnASheet();
await reachesTheCloud();
const sceneId = await worksOnAScene();
await asksForTheRest(sceneId, names);
await failsWithTheReason();
await keepsFiftyCallsApart(sheetId);
if (settings.launcher) await outlivesTheAgent(sheetId, sceneId);
assert.deepEqual([...called].sort(), names);
const closing = Date.now();
await client.close();
// The SDK waits two seconds for a server to end before it uses force.
assert.ok(Date.now() - closing < 1900, 'the server ended by itself');
console.log('ended');
process.exit(0);
