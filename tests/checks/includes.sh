#!/usr/bin/env bash
# Reads the includes of src/ and fails on an arrow that points up, sideways
# without leave, or out of a folder that stands alone. The table is the picture
# of README.md; since every arrow in it points down, no circle can close.
set -euo pipefail

awk '
BEGIN {
  allowed["base"] = "base"
  allowed["launcher"] = "base launcher"
  allowed["net"] = "base net"
  allowed["platform"] = "base platform"
  allowed["cloud"] = "base platform cloud"
  allowed["store"] = "base platform store"
  allowed["preferences"] = "base platform preferences"
  allowed["auth"] = "base platform cloud auth"
  allowed["access"] = "base platform cloud auth access"
  allowed["control"] = "base net control"
  allowed["mcp"] = "base platform net cloud auth access control mcp"
  allowed["ai"] = "base platform cloud auth preferences ai"
  allowed["sync"] = "base platform store cloud auth sync"
  allowed["render"] = "base platform net cloud preferences render"
  allowed["updates"] = "base platform cloud auth preferences updates"
  allowed["tools"] = "base platform store cloud auth preferences access mcp ai tools"
  allowed["ui"] = "base shell ui"
  allowed["shell"] = allowed["mcp"] " store preferences ai sync render updates tools shell"
  allowed["renderkit"] = "renderkit"
  allowed["programs"] = allowed["shell"] " launcher renderkit programs"
  allowed["devcloud"] = "base devcloud"
  for (folder in allowed) {
    count = split(allowed[folder], names, " ")
    for (i = 1; i <= count; ++i) may[folder, names[i]] = 1
  }
  bad = 0
}
FNR == 1 {
  folder = FILENAME
  sub(/^src\//, "", folder)
  sub(/\/.*/, "", folder)
  if (!(folder in allowed)) { print FILENAME ": the folder is not in the table of tests/checks/includes.sh"; bad = 1 }
}
/^#include "/ {
  target = $2
  gsub(/"/, "", target)
  first = target
  if (sub(/\/.*/, "", first) == 0) { print FILENAME ":" FNR ": includes are written from src/: " target; bad = 1; next }
  if (!((folder, first) in may)) { print FILENAME ":" FNR ": " folder "/ must not include " target; bad = 1 }
  # paths has no dependency at all, and the launcher none but paths, so that it stays small.
  if (FILENAME ~ /^src\/base\/paths\// && target !~ /^base\/paths\//) { print FILENAME ":" FNR ": base/paths includes nothing of ours: " target; bad = 1 }
  if (FILENAME ~ /^src\/(launcher\/|programs\/LauncherMain)/ && target !~ /^(launcher|base\/paths)\//) { print FILENAME ":" FNR ": the launcher includes base/paths alone: " target; bad = 1 }
}
END { exit bad }
' $(git ls-files --cached --others --exclude-standard -- 'src/*.h' 'src/*.cpp' 'devcloud/*.h' 'devcloud/*.cpp' |
  while read -r file; do [ ! -e "$file" ] || echo "$file"; done)
echo "every include points down"
