#!/usr/bin/env bash
# A schema change as a maintainer makes one: fields of every kind the library
# reads added to one message in proto/ alone, in a fresh copy of the tree,
# which is built with its tool under a project that adds a program reading
# them through their accessors (schema_change/check.cc); then the tool shows
# them and encodes them back. Environment: SOURCE, WORK.
set -euo pipefail
fail() { echo "schema_change: $*" >&2; exit 1; }
. "$(dirname "$0")/copy_tree.sh"
rm -rf "$WORK"
copy_tree "$SOURCE" "$WORK/linkward"
proto=$WORK/linkward/proto/kx_response.proto
# At the end of MD5Result, with numbers far from those a maintainer adds next.
grep -qx 'message MD5Result {' "$proto" || fail "no MD5Result in $proto"
sed -i '/^message MD5Result {$/,/^}$/ s/^}$/  optional int32 score = 1001;\
  optional bool flagged = 1002;\
  optional bytes blob = 1003;\
  optional string note = 1004;\
  optional linkward.info.CacheType kind = 1005;\
  repeated linkward.info.StringPair extras = 1006;\
  repeated string tags = 1007;\
  optional linkward.info.LeakCount leak = 1008;\
}/' "$proto"

cmake -S "$SOURCE/tests/schema_change" -B "$WORK/build" -G Ninja \
  -DLINKWARD_SOURCE_DIR="$WORK/linkward" >/dev/null
cmake --build "$WORK/build"
"$WORK/build/check" "$WORK/answer.bin"
linkward=$WORK/build/linkward/tools/linkward
shown=$("$linkward" inspect --as answer "$WORK/answer.bin")
for field in 'score: 7' 'flagged: true' 'blob: "b1"' 'note: "n1"' \
  'kind: kCacheType1' 'key: "k2"' 'tags: "t2"' 'high: 5'; do
  grep -qF "$field" <<<"$shown" || fail "inspect does not show $field: $shown"
done
! grep -q unknown <<<"$shown" || fail "inspect shows unknown fields: $shown"
"$linkward" inspect --json --as answer "$WORK/answer.bin" >"$WORK/answer.json"
grep -qF '"tags": [' "$WORK/answer.json" || fail "inspect --json: $(cat "$WORK/answer.json")"
"$linkward" encode --as answer "$WORK/answer.json" -o "$WORK/again.bin"
cmp "$WORK/answer.bin" "$WORK/again.bin" || fail "inspect --json | encode gives other bytes"
