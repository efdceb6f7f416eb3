// A server as the official SDK makes one, with a tool that lists ten rows of SQLite: what
// the agent's rate is held against. In memory, since this build of SQLite takes ten times as
// long to lock a file as to read it, and that is not what is to be compared.
import { McpServer } from '@modelcontextprotocol/sdk/server/mcp.js';
import { StdioServerTransport } from '@modelcontextprotocol/sdk/server/stdio.js';
import sqlite from 'node-sqlite3-wasm';

const database = new sqlite.Database(':memory:');
database.run('CREATE TABLE IF NOT EXISTS sheets (id TEXT PRIMARY KEY, owner TEXT, title TEXT, updated_at TEXT)');
for (let i = 0; i < 10; ++i) {
  database.run('INSERT OR REPLACE INTO sheets VALUES (?, ?, ?, ?)', [`sheet-${i}`, 'bench', `Sheet ${i}`, '2026-03-01 12:00:00.000']);
}
const list = database.prepare('SELECT id, title, updated_at FROM sheets WHERE owner = ? ORDER BY updated_at DESC');

const server = new McpServer({ name: 'peer', version: '1' });
server.registerTool('list_sheets', { description: 'List the sheets.' }, () => {
  const sheets = list.all(['bench']).map((row) => ({ id: row.id, title: row.title, updatedAt: row.updated_at }));
  return { content: [{ type: 'text', text: JSON.stringify({ sheets }) }] };
});
await server.connect(new StdioServerTransport());
