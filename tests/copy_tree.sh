# copy_tree SOURCE DEST: the source tree as a user has it, from a clone or a
# release tarball alike: every file but git's own and the build folders (any
# folder at the top that holds a CMakeCache.txt).
copy_tree() {
  local excludes=(--exclude=./.git) cache
  while IFS= read -r cache; do
    excludes+=("--exclude=./$(basename "$(dirname "$cache")")")
  done < <(find "$1" -mindepth 2 -maxdepth 2 -name CMakeCache.txt)
  mkdir -p "$2"
  tar -C "$1" "${excludes[@]}" -cf - . | tar -C "$2" -xf -
}
