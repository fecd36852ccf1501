#!/usr/bin/env bash
# Which lines of what only computes do the native tests and the fuzzers' corpus run, file by file, and which texts of the
# library does a test name? Fails when less than 95 per cent of the lines of a reader of foreign bytes run.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib.sh

build=build/native-coverage
results=$PWD/build/coverage
least=95
readers='src/filter/event_name\.cpp|src/network/packet_filing\.cpp|src/userhelper/(counted_text|response_messages)\.cpp|helper/request_reader\.cpp|lab/player/scenario/[a-z_]+\.cpp'

run_tests() {
  find "$build" -name '*.gcda' -delete
  ctest --preset native-coverage >"$results/tests.txt" 2>&1 && return
  tail -n 30 "$results/tests.txt"
  echo "coverage.sh: a test failed; the whole output is in $results/tests.txt." >&2
  return 1
}

# One run over all objects, which adds up what the programs ran that share a source.
count_lines() {
  local counts
  mapfile -t counts < <(find "$PWD/$build" -name '*.gcda' ! -path '*/googletest/*')
  (cd "$results/lines" && gcov --preserve-paths --relative-only --source-prefix "$OLDPWD" "${counts[@]}" >/dev/null 2>&1)
}

# The table, and below each file the lines that never ran.
report_lines() {
  local file
  for file in "$results"/lines/*.gcov; do
    awk -F: -v readers="^($readers)\$" -v least=$least '
      FNR == 1 { sub(/^[^:]*:[^:]*:Source:/, ""); name = $0; next }
      $2 + 0 == 0 || $1 ~ /-/ { next }
      # A template is listed once for each of its instances as well.
      { known[$2 + 0] = 1 }
      $1 !~ /#####|=====/ { ran[$2 + 0] = 1 }
      $2 + 0 > last { last = $2 + 0 }
      END {
        for (line = 1; line <= last; ++line) {
          if (!(line in known)) continue
          ++all
          if (line in ran) ++run
          else missed = missed " " line
        }
        if (name !~ /^(src|helper|lab)\// || all == 0) exit
        percent = 100 * run / all
        isReader = name ~ readers
        printf "%6.1f  %4d of %4d  %s%s\n", percent, run, all, name, isReader ? "  (reads foreign bytes)" : ""
        if (missed != "") printf "        lines%s\n", missed
        exit isReader && percent < least ? 3 : 0
      }' "$file" || low=1
  done
}

# Every wide text of more than one word in the library's sources: its log lines, and what it tells Windows. A text counts as named
# when a test holds it with anything in the place of what the line fills in, as a literal or a quotation of its own, behind its
# level, or behind what the line begins with; or, where a test puts the text together itself, its first piece.
report_texts() {
  perl -0777 -e '
    sub slurp { my ($name) = @_; open(my $file, "<", $name) or die "$name: $!\n"; my $text = <$file>; return $text // "" }
    sub joined { my ($code) = @_; $code =~ s/"\s*\n\s*L?"//g; return $code }
    my ($tests, %texts) = ("");
    for my $name (split /\n/, `git ls-files tests src`) {
      if ($name =~ m{^tests/.*\.(cpp|h)$}) { $tests .= joined(slurp($name)); next }
      next unless $name =~ m{^src/.*\.cpp$};
      my $code = joined(slurp($name));
      while ($code =~ m{(\bL)?"((?:[^"\\\n]|\\.)*)"}g) {
        my ($isWide, $text) = ($1, $2);
        $texts{$text}{$name} = 1 if $isWide && $text =~ /\S +\S/;
      }
    }
    my @missing;
    for my $text (sort keys %texts) {
      my @pieces = split /%(?:l?l?[ud]|[sx])/, $text =~ s/^%s\. //r, -1;
      my $before = "[\"\x27](?:OstrelFilterDriver: |log \\d |error: )?";
      my $whole = join "[^\"\\n]*", map { quotemeta } @pieces;
      my $isNamed = $tests =~ /$before$whole["\x27]/;
      $isNamed ||= @pieces > 1 && length $pieces[0] > 8 && $tests =~ /$before\Q$pieces[0]\E"/;
      push @missing, "  $text  (" . join(", ", sort keys %{$texts{$text}}) . ")" unless $isNamed;
    }
    printf "Texts of the library: %d, named by a test: %d\n", scalar keys %texts, keys(%texts) - @missing;
    print "Named by no test:\n", join("\n", @missing), "\n" if @missing;
  '
}

scripts/setup.sh
rm -rf "$results"
mkdir -p "$results/lines"
build_preset native-coverage
run_tests
count_lines
low=0
report_lines
echo
report_texts
if [ "$low" -ne 0 ]; then
  echo "coverage.sh: less than $least per cent of the lines of a reader of foreign bytes ran." >&2
  exit 1
fi
