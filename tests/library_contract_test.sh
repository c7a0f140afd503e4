#!/bin/sh
# library_contract_test.sh: what libapsupport.so promises to a device, checked on the linked library and its objects.
#   - it needs libc and libcjson, nothing else;
#   - it refers to functions of the platform's headers, to cJSON and to libc, nothing else;
#   - no object of ours has a constructor that runs at load;
#   - it exports exactly what the public headers of the built rooms declare, and the linker map names what all declare;
#   - the headers compile as C99.
# CTest runs it for every build without sanitizers, host and device alike. Every broken promise is printed; status 1.
set -u

source_folder=$1 library=$2 objects=$3 nm=$4 readelf=$5 compiler=$6 rooms=$7
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C

broken_promise() {
    printf 'FAILED: %s\n' "$1" | tee -a "$work/broken"
    sed 's/^/    /'
}

# Compares two sorted lists: expect_same WHAT EXPECTED FOUND.
expect_same() {
    cmp -s "$2" "$3" || diff -u "$2" "$3" | sed '1,3d' | grep '^[-+]' | broken_promise "$1 (-: missing, +: too much)"
}

# The names that headers declare: functions and data, neither types nor inline functions. $1: folder, then header paths.
declared_in() {
    include_folder=$1
    shift
    for header in "$@"; do printf '#include "%s"\n' "$header"; done |
        $compiler -std=gnu99 -E -I"$source_folder/include" -I"$source_folder/platform/include" -x c - |
        awk -v own="$include_folder/" '
            /^# [0-9]+ "/ { ours = index($3, own) > 0; next }
            ours && !/^#/ { text = text " " $0 }
            END {
                while (match(text, /\{[^{}]*\}/)) text = substr(text, 1, RSTART - 1) " " substr(text, RSTART + RLENGTH)
                while (match(text, /__attribute__ *\(\([^()]*(\([^()]*\)[^()]*)*\)\)/))
                    text = substr(text, 1, RSTART - 1) " " substr(text, RSTART + RLENGTH)
                count = split(text, declarations, ";")
                for (i = 1; i <= count; ++i) {
                    line = declarations[i]
                    if (line ~ /^ *(typedef|static)/ || line !~ /extern|\(/) continue
                    if (match(line, /\( *\* *[A-Za-z_0-9]+ *(\[[^]]*\])* *\)/) && line ~ /^ *extern/) line = substr(line, RSTART, RLENGTH)
                    else if (match(line, /[A-Za-z_0-9]+ *\(/)) line = substr(line, RSTART, RLENGTH)
                    gsub(/\[[^]]*\]|[()*]/, "", line)
                    n = split(line, words, " ")
                    print words[n]
                }
            }' | sort -u
}

headers_of() { for room in "$@"; do echo "apsupport/$room.h"; done; }

needed=$($readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p' | sort | tr '\n' ' ')
[ "$needed" = 'libc.so.6 libcjson.so.1 ' ] || echo "$needed" | broken_promise 'it needs libc.so.6 and libcjson.so.1, nothing else'

declared_in applatform $(cd "$source_folder/platform/include" && ls applatform/*.h) >"$work/platform"
$nm -D --undefined-only "$library" | awk '$1 == "U" && $2 !~ /@GLIBC/ { print $2 }' | grep -v '^cJSON_' | sort >"$work/undefined"
comm -13 "$work/platform" "$work/undefined" >"$work/stray"
[ ! -s "$work/stray" ] || broken_promise 'it refers to the platform, cJSON and libc, nothing else' <"$work/stray"

find "$objects" -name '*.o' >"$work/objects"
[ -s "$work/objects" ] || echo "$objects" | broken_promise 'there are objects to look at'
while read -r object; do
    $readelf -SW "$object" | grep -qE '\.(init_array|ctors)' && echo "$object"
done <"$work/objects" >"$work/constructors"
[ ! -s "$work/constructors" ] || broken_promise 'no object has a static constructor' <"$work/constructors"

declared_in apsupport $(headers_of $rooms) >"$work/declared"
[ -s "$work/declared" ] || echo "$rooms" | broken_promise 'the headers declare something'
$nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort >"$work/exported"
expect_same "it exports what the headers of $rooms declare" "$work/declared" "$work/exported"

declared_in apsupport $(cd "$source_folder/include" && ls apsupport/*.h) >"$work/all"
sed -n 's/^ *\([A-Za-z_0-9]*\);$/\1/p' "$source_folder/cmake/libapsupport.map" | sort >"$work/map"
expect_same 'the linker map names what the headers declare' "$work/all" "$work/map"

for header in "$source_folder"/include/apsupport/*.h; do
    $compiler -std=c99 -D_GNU_SOURCE -Wall -Wextra -pedantic -Werror -I"$source_folder/include" -fsyntax-only -x c "$header" \
        2>"$work/complaints" || broken_promise "$header compiles as C99" <"$work/complaints"
done

[ ! -s "$work/broken" ] || exit 1
printf 'exports %s names, refers to %s platform functions and %s of cJSON, needs %s\n' "$(wc -l <"$work/exported")" \
    "$(wc -l <"$work/undefined")" "$($nm -D --undefined-only "$library" | grep -c ' cJSON_')" "$needed"
