# Sourced by the scripts that run tests: they run in the source tree's root and count into passed,
# failed and skipped.
# shellcheck shell=bash

passed=0
failed=0
skipped=0
select=() # further arguments of ctest, such as -R REGEX

story= # of what failed

# Prints once more what failed, where one looks first, and the last line, "N passed, M failed", with
# ", K skipped" behind it when tests could not run here; true when there is nothing to mend.
finish() {
  [ -z "$story" ] || printf '== what failed\n%s' "$story"
  line="$passed passed, $failed failed"
  [ "$skipped" -eq 0 ] || line="$line, $skipped skipped"
  echo "$line"
  [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
}

count_failure() {
  echo "script/${0##*/}: $1" >&2
  story+="$1"$'\n'
  failed=$((failed + 1))
}

# attribute FILE NAME: a number of the report's <testsuite> element.
attribute() {
  grep -o -m1 "[[:space:]]$2=\"[0-9]*\"" "$1" | grep -o '[0-9]*'
}

# failures_of FILE: the report's tests that failed, each with the end of what it printed.
failures_of() {
  awk -v most=60 '
    function tell(first, i) {
      print name " failed:"
      first = lines > most ? lines - most : 0
      if (first > 0) print "    ..."
      for (i = first; i < lines; ++i) print "    " line[i]
    }
    /<testcase / {
      name = $0; sub(/.*<testcase name="/, "", name); sub(/" classname=.*/, "", name)
      bad = /status="fail"/; inside = 0; lines = 0
    }
    bad && /<system-out>/ { inside = 1; sub(/.*<system-out>/, "") }
    bad && inside {
      text = $0; sub(/<\/system-out>.*/, "", text)
      gsub(/&lt;/, "<", text); gsub(/&gt;/, ">", text); gsub(/&quot;/, "\"", text); gsub(/&amp;/, "\\&", text)
      line[lines++] = text
    }
    bad && /<\/system-out>/ { inside = 0 }
    bad && /<\/testcase>/ { tell() }
  ' "$1"
}

# run_tests PRESET CTEST-ARGUMENT...
run_tests() {
  local preset=$1 report
  shift
  report=$PWD/build/$preset/tests.xml
  rm -f "$report"
  ctest --test-dir "build/$preset" -j "$(nproc)" --output-on-failure --output-junit "$report" "$@" "${select[@]}"
  if [ ! -s "$report" ]; then
    count_failure "no test report from the $preset build"
    return
  fi
  local tests failures disabled not_run
  tests=$(attribute "$report" tests)
  failures=$(attribute "$report" failures)
  disabled=$(attribute "$report" disabled)
  not_run=$(attribute "$report" skipped)
  not_run=$((not_run + disabled))
  failed=$((failed + failures))
  [ "$failures" -eq 0 ] || story+=$(failures_of "$report")$'\n'
  skipped=$((skipped + not_run))
  passed=$((passed + tests - failures - not_run))
}

# build_and_run PRESET TARGET LABEL
build_and_run() {
  echo "== $1"
  if script/build "$1" "$2"; then
    run_tests "$1" -L "$3"
  else
    count_failure "the $1 build failed"
  fi
}
