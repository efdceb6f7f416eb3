#!/usr/bin/env bash
# ./run.sh              builds, then runs the agent against a cloud on this machine,
#                       with a demo person signed in; Ctrl-C ends both
# ./run.sh --no-cloud   builds, then runs the agent alone, with your own account
#                       and deployment file
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bin=$here/build/release/bin
demo=$here/.demo

usage() {
  echo "usage: ./run.sh [--no-cloud]" >&2
  exit 2
}
[ $# -le 1 ] || usage
[ $# -eq 0 ] || [ "$1" = --no-cloud ] || usage

"$here/scripts/install-packages.sh" build
"$here/scripts/build.sh" release vorlane-agent vorlanectl vorlane-mcp-launcher vorlane-devcloud vorlane-bake

if [ "${1:-}" = --no-cloud ]; then
  exec "$bin/vorlane-agent" --headless
fi

# Everything of the demo lies below .demo, HOME included: the person's own
# account, keyring, defaults and launcher pointer are never touched.
mkdir -p -m 700 "$demo" "$demo/home"
export HOME=$demo/home XDG_CACHE_HOME=$demo/cache
export VORLANE_CONTAINER=$demo/container VORLANE_CONFIG_HOME=$demo/config VORLANE_VAULT=file
export VORLANE_SHELL_LOG=$demo/vorlane.log VORLANE_DEPLOYMENT=$demo/cloud/deployment.json
unset XDG_DATA_HOME XDG_CONFIG_HOME

free_port() { ! (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
port=17800
free_port $port || port=0
cloud_port=17843
{ free_port $cloud_port && free_port $((cloud_port + 1)); } || cloud_port=0

children=()
finish() {
  trap - EXIT INT TERM
  [ ${#children[@]} -eq 0 ] || kill "${children[@]}" 2>/dev/null || true
  wait
  exit "$1"
}
trap 'finish $?' EXIT
trap 'finish 0' INT TERM

# Waits until the command succeeds, ten seconds at most.
until_true() {
  local tries=200
  until "$@" >/dev/null 2>&1; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || { echo "run.sh: gave up waiting for: $*; see $VORLANE_SHELL_LOG" >&2; return 1; }
    sleep 0.05
  done
}

if [ -f "$VORLANE_DEPLOYMENT" ] && [ "$("$bin/vorlanectl" status | sed -n 's/.*"running":\(true\).*/\1/p')" = true ]; then
  echo "run.sh: the demo is running already" >&2
  trap - EXIT
  exit 1
fi
rm -f "$demo/cloud.out"
"$bin/vorlane-devcloud" --dir "$demo/cloud" --port $cloud_port >"$demo/cloud.out" &
children+=($!)
until_true grep -q '^ready$' "$demo/cloud.out"

# The demo person, signed in with real tokens of the local identity provider.
secure=$(sed -n 's/.*"ledgerlyBase": *"https:\/\/127\.0\.0\.1:\([0-9]*\)".*/\1/p' "$VORLANE_DEPLOYMENT")
control=http://127.0.0.1:$((secure + 1))/__control
person='{"sub":"demo|ana","email":"ana@example.com","name":"Ana Prado","mcpAccess":true}'
curl -fsS --noproxy '*' -o /dev/null "$control/people" -H 'Content-Type: application/json' -d "$person"
vault=$VORLANE_CONTAINER/vault/com.vorlane.auth
(umask 077 && mkdir -p "$vault" "$VORLANE_CONFIG_HOME" &&
  curl -fsS --noproxy '*' "$control/tokens" -H 'Content-Type: application/json' -d '{"sub":"demo|ana"}' \
    -o "$vault/auth0-tokens.new" && mv "$vault/auth0-tokens.new" "$vault/auth0-tokens")

"$bin/vorlane-agent" --headless --port $port &
children+=($!)
with_access() { "$bin/vorlanectl" status | grep -q '"mcpAccess": *true'; }
serving() { "$bin/vorlanectl" status | grep -q '"serving": *true'; }
until_true with_access
until_true serving

token=$("$bin/vorlanectl" token | sed -n 's/.*"token": *"\([0-9a-f]*\)".*/\1/p')
endpoint=$("$bin/vorlanectl" status | sed -n 's/.*"endpoint": *"\([^"]*\)".*/\1/p')
call() {
  curl -fsS --noproxy '*' "$endpoint" -H "Authorization: Bearer $token" -H 'Content-Type: application/json' -d "$1"
}
list='{"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"ledgerly_list_sheets"}}'
sheets=$(call "$list")
if [[ $sheets != *'Night exterior'* ]]; then
  while read -r request; do call "$request" >/dev/null; done <"$here/packaging/demo-sheets.jsonl"
fi

cat <<TXT

The agent is running for Ana Prado, with three sheets. Ctrl-C ends it and its cloud.

Endpoint:     $endpoint
Bearer token: $token
Log:          $VORLANE_SHELL_LOG

For an assistant that speaks MCP over standard input and output:

{
  "mcpServers": {
    "vorlane": {
      "command": "$bin/vorlane-mcp-launcher",
      "args": ["--container", "$VORLANE_CONTAINER"]
    }
  }
}

For one that speaks it over HTTP:

$("$bin/vorlanectl" client-config --http)

From a shell:

curl -s --noproxy '*' $endpoint -H 'Authorization: Bearer $token' -d '$list'

TXT
ended=0 status=0
wait -n -p ended || status=$?
[ "$ended" = "${children[0]}" ] && program=cloud || program=agent
echo "run.sh: the demo's $program has ended with $status; see $VORLANE_SHELL_LOG" >&2
finish "$status"
