#!/usr/bin/env bash
# Plants small faults in a scratch copy of the tree, one at a time, and reports the ones that no
# test catches. The faults are listed in scripts/mutants.txt (see the head of that file for its
# form); the working tree is never modified.
#
#   scripts/mutants.sh [--faults FILE] [--only REGEX] [--jobs N] [--keep] [--out FILE] [--check]
#
#   --check        only check the list against the tree (each text occurs once, ids unique and
#                  named after their folder); builds nothing, exits 1 when a fault is stale
#   --faults FILE  the list of faults (default scripts/mutants.txt)
#   --only REGEX   plant only the faults whose id matches REGEX (grep -E)
#   --jobs N       build and test parallelism (default: nproc)
#   --keep         keep the scratch copy and its build (their path is printed)
#   --out FILE     also write the report to FILE
#
# Each fault names the tests that should catch it (a ctest -R expression); only the targets those
# tests run are rebuilt after planting, so faults in one folder share most of one build. A fault
# whose text does not occur exactly once in its file is reported as "not planted", never as
# caught. Exit status: 0 when every planted fault was caught, 1 when some were missed, 2 for bad
# arguments, a dirty tree or a scratch build that fails before any fault is planted.
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
cd "$top"

faults_file=scripts/mutants.txt only="" jobs="$(nproc)" keep=0 out="" check=0
while (($#)); do
  case "$1" in
    --faults) faults_file="$2"; shift 2 ;;
    --only) only="$2"; shift 2 ;;
    --jobs) jobs="$2"; shift 2 ;;
    --keep) keep=1; shift ;;
    --out) out="$2"; shift 2 ;;
    --check) check=1; shift ;;
    -h|--help) sed -n '2,20p' "$0"; exit 0 ;;
    *) echo "mutants: unknown argument $1 (see --help)" >&2; exit 2 ;;
  esac
done
[ -f "$faults_file" ] || { echo "mutants: no fault list at $faults_file" >&2; exit 2; }

# --- the fault list: blocks of "key: value" lines separated by blank lines -----------------------
ids=() files=() finds=() repls=() tests=() whys=()
parse() {
  local id="" file="" find="" repl="" test="" why="" line key val lineno=0 start=0
  flush() {
    if [ -n "$id$file$find$repl$test" ]; then
      if [ -z "$id" ] || [ -z "$file" ] || [ -z "$find" ] || [ -z "$test" ]; then
        echo "mutants: $faults_file:$start: a fault needs id, file, find and tests" >&2
        exit 2
      fi
      if [ -z "$only" ] || grep -qE -- "$only" <<<"$id"; then
        ids+=("$id") files+=("$file") finds+=("$find") repls+=("$repl") tests+=("$test")
        whys+=("$why")
      fi
    fi
    id="" file="" find="" repl="" test="" why=""
  }
  while IFS= read -r line || [ -n "$line" ]; do
    lineno=$((lineno + 1))
    case "$line" in
      '#'*) continue ;;
      '') flush; continue ;;
    esac
    [ -n "$id$file$find$repl$test$why" ] || start=$lineno
    key="${line%%:*}" val="${line#*: }"
    [ "$val" != "$line" ] || val=""
    case "$key" in
      id) id="$val" ;; file) file="$val" ;; find) find="$val" ;; replace) repl="$val" ;;
      tests) test="$val" ;; why) why="$val" ;;
      *) echo "mutants: $faults_file:$lineno: unknown key '$key'" >&2; exit 2 ;;
    esac
  done <"$faults_file"
  flush
}
parse
((${#ids[@]})) || { echo "mutants: no fault selected" >&2; exit 2; }

count() {  # <file> <text>: how many times the text occurs in the file
  FIND="$2" perl -0777 -ne 'my $f = $ENV{FIND}; my $n = () = /\Q$f\E/g; print $n' "$1"
}

if ((check)); then
  stale=0
  declare -A seen=()
  for i in "${!ids[@]}"; do
    id="${ids[$i]}" file="${files[$i]}" why=""
    if [ -n "${seen[$id]:-}" ]; then
      why="the id is used twice"
    elif [ "${id%%-*}" != "${file%%/*}" ]; then
      why="the id does not begin with its folder, ${file%%/*}-"
    elif [ ! -f "$file" ]; then
      why="$file does not exist"
    elif n="$(count "$file" "${finds[$i]}")" && [ "$n" != 1 ]; then
      why="the text occurs $n times in $file"
    fi
    seen[$id]=1
    if [ -n "$why" ]; then echo "NOT PLANTED  $id  ($why)"; stale=$((stale + 1)); fi
  done
  echo "mutants: ${#ids[@]} faults checked in $faults_file, $stale to fix"
  exit $((stale > 0))
fi

# --- the working tree must hold, committed, the files the faults touch -------------------------
mapfile -t touched < <(printf '%s\n' "${files[@]}" | sort -u)
dirty="$(git status --porcelain -- "${touched[@]}")"
if [ -n "$dirty" ]; then
  echo "mutants: uncommitted changes to files that faults touch; commit or stash them first:" >&2
  echo "$dirty" >&2
  exit 2
fi

# --- scratch copy and its baseline build --------------------------------------------------------
scratch="$(mktemp -d "${TMPDIR:-/tmp}/mutants.XXXXXX")"
# Tests run the host as an unprivileged user from private trees linked into the build tree.
chmod 755 "$scratch"
planted=""  # the file that holds a fault right now (restored on any exit)
cleanup() {
  if [ -n "$planted" ] && [ -f "$scratch/orig" ]; then cp -p "$scratch/orig" "$scratch/src/$planted"; fi
  if ((keep)); then echo "mutants: scratch copy kept in $scratch"; else rm -rf "$scratch"; fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM HUP PIPE
mkdir -p "$scratch/src"
git ls-files -z | tar --null -T - -cf - | tar -xf - -C "$scratch/src"
# The build directory sits inside the copy, as build/ sits in a working tree: with the compiler
# cache's base_dir above both, the untouched files compile from the cache of any tree's build.
src="$scratch/src" bld="$scratch/src/build"
echo "mutants: ${#ids[@]} faults; scratch copy in $scratch"
t0=$SECONDS

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
if ! cmake -S "$src" -B "$bld" -G Ninja -DWS_BUILD_BENCH=OFF "${launcher[@]}" >"$scratch/cmake.log" 2>&1; then
  echo "mutants: the scratch copy does not configure; see $scratch" >&2
  keep=1
  exit 2
fi

# The build targets behind the tests that match a ctest expression ("all" when one of them is not
# a test executable of ours, e.g. a script that checks the shared library or the browser test).
# Before the first build ctest names a missing executable in a "Could not find" line instead.
targets_for() {
  local expr="$1" cmd name t=()
  while IFS= read -r cmd; do
    name="$(basename "${cmd%% *}")"
    case "$cmd" in
      "$bld"/test-bin/*) t+=("$name") ;;
      *) echo all; return ;;
    esac
  done < <(cd "$bld" && ctest -N -V -R "$expr" |
    sed -n -e 's/^[0-9]*: Test command: \(..*\)/\1/p' -e 's/^Could not find executable //p')
  ((${#t[@]})) || { echo none; return; }
  printf '%s\n' "${t[@]}" | sort -u
}

run_tests() {  # <expr> <log>: 0 when every matching test passed
  (cd "$bld" && ctest -R "$1" -j "$jobs" --timeout 300 --no-tests=error) >"$2" 2>&1
}

# Baseline: build what the selected faults' tests need (everything when one of them is not a
# test executable of ours), then every expression must select tests that pass unchanged.
declare -A targets_of=()
needed=()
for i in "${!ids[@]}"; do
  expr="${tests[$i]}"
  [ -z "${targets_of[$expr]+x}" ] || continue
  targets_of[$expr]="$(targets_for "$expr" | tr '\n' ' ')"
  case " ${targets_of[$expr]} " in
    *" none "*) echo "mutants: no test matches '$expr' (fault ${ids[$i]})" >&2; keep=1; exit 2 ;;
  esac
  read -ra t <<<"${targets_of[$expr]}"
  needed+=("${t[@]}")
done
mapfile -t needed < <(printf '%s\n' "${needed[@]}" | sort -u)
if printf '%s\n' "${needed[@]}" | grep -qx all; then needed=(); fi
if ! cmake --build "$bld" -j "$jobs" ${needed[@]+--target "${needed[@]}"} >"$scratch/build.log" 2>&1; then
  echo "mutants: the scratch copy does not build without faults; see $scratch" >&2
  keep=1
  exit 2
fi
echo "mutants: baseline built in $((SECONDS - t0)) s"
# One ctest run (in parallel) of every test that some fault names: the expressions are resolved
# to test names first, since ctest's regular expressions allow only a few groups.
mapfile -t exprs < <(printf '%s\n' "${tests[@]}" | sort -u)
mapfile -t names < <(for expr in "${exprs[@]}"; do
  (cd "$bld" && ctest -N -R "$expr") | sed -n 's/^ *Test *#[0-9]*: \(.*\)$/\1/p'
done | sort -u)
all_names="$(printf '%s|' "${names[@]}")"
if ! run_tests "^(${all_names%|})\$" "$scratch/baseline.log"; then
  echo "mutants: tests fail without any fault; see $scratch/baseline.log" >&2
  sed -n 's/^[[:space:]]*[0-9]* - \(.*\) (.*)$/  \1/p' "$scratch/baseline.log" >&2
  keep=1
  exit 2
fi

echo "mutants: baseline tests passed after $((SECONDS - t0)) s"

# --- plant, build, test, restore ----------------------------------------------------------------
# Exact, literal replacement of the one occurrence; prints how many occurrences there were.
plant() {  # <file> <find> <replace>
  FIND="$2" REPL="$3" perl -0777 -i -pe '
    my ($f, $r) = ($ENV{FIND}, $ENV{REPL});
    my $n = () = /\Q$f\E/g;
    print STDERR "$n\n";
    s/\Q$f\E/$r/ if $n == 1;' "$1" 2>&1 >/dev/null
}

declare -A folder_planted=() folder_caught=()
report=()
caught=0 missed=0 notplanted=0 nobuild=0
order=()
mapfile -t order < <(for i in "${!ids[@]}"; do printf '%s\t%s\n' "${files[$i]}" "$i"; done | sort -s -k1,1 | cut -f2)
for i in "${order[@]}"; do
  id="${ids[$i]}" file="${files[$i]}" expr="${tests[$i]}"
  folder="${file%%/*}"
  if [ ! -f "$src/$file" ]; then
    report+=("NOT PLANTED  $id  ($file does not exist)"); notplanted=$((notplanted + 1)); continue
  fi
  started=$SECONDS
  cp -p "$src/$file" "$scratch/orig"
  planted="$file"
  n="$(plant "$src/$file" "${finds[$i]}" "${repls[$i]}")"
  if [ "$n" != 1 ]; then
    cp -p "$scratch/orig" "$src/$file"; planted=""
    report+=("NOT PLANTED  $id  (the text occurs $n times in $file)"); notplanted=$((notplanted + 1))
    continue
  fi
  read -ra tg <<<"${targets_of[$expr]}"
  if [ "${tg[0]}" = all ]; then tg=(); fi
  if ! cmake --build "$bld" -j "$jobs" ${tg[@]+--target "${tg[@]}"} >"$scratch/fault.log" 2>&1; then
    state="BUILD FAILED"; nobuild=$((nobuild + 1))
  elif run_tests "$expr" "$scratch/fault.log"; then
    state="MISSED"; missed=$((missed + 1))
    folder_planted[$folder]=$((${folder_planted[$folder]:-0} + 1))
  else
    state="CAUGHT"; caught=$((caught + 1))
    folder_planted[$folder]=$((${folder_planted[$folder]:-0} + 1))
    folder_caught[$folder]=$((${folder_caught[$folder]:-0} + 1))
  fi
  cp -p "$scratch/orig" "$src/$file"; planted=""
  touch "$src/$file"  # newer than the faulty object, so the next build compiles the original
  line="$(printf '%-12s %s' "$state" "$id")"
  [ "$state" != MISSED ] || line+="  ($file: ${whys[$i]})"
  report+=("$line")
  echo "$line  [$((SECONDS - started)) s]"
done

{
  echo
  echo "== Faults"
  printf '%s\n' "${report[@]}"
  echo
  echo "== Caught / planted per folder"
  for f in $(printf '%s\n' "${!folder_planted[@]}" | sort); do
    printf '%-12s %3d / %3d\n' "$f" "${folder_caught[$f]:-0}" "${folder_planted[$f]}"
  done
  echo
  echo "caught $caught, missed $missed, not planted $notplanted, build failed $nobuild" \
    "($((SECONDS - t0)) s)"
} | tee ${out:+"$out"}
((missed == 0))
