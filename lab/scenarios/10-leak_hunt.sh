# SPDX-License-Identifier: GPL-2.0-only
# lane: 3
# limit: 40 s
# A real leak: programs that keep what they open. The hunt must name them and the path of their
# system calls, with exactly the counts that the programs know. Nothing else counts under their
# names, so there is no tolerance.
. /lab/scenarios/lib.sh

load_all

# Waits until a hunt records, then runs the leaks.
during_hunt() { # TARNCTL_HUNT_OPTION...
	tarnctl hunt --device /dev/tarn_memcheck "$@" >hunted 2>errors &
	hunt=$!
	await 10 grep -q 1 "$parameters"/slub_track_flag
}

end_hunt() {
	wait "$hunt" || fail "hunt: $? $(cat errors)"
	equal "tracking after the hunt" "$(cat "$parameters"/slub_track_flag)" 0
}

before=$(footprint filp)
during_hunt --cache filp --seconds $((3 * LAB_SLOW)) --json
for leak in "pipes pipe 300" "files file 700" "events eventfd 200" "sockets socket 100"; do
	# shellcheck disable=SC2086 # a program's arguments
	background leak $leak >"taken_${leak%% *}"
done
leak closer file 400 closed >/dev/null
# This one exits during the hunt: the kernel frees what it held on its behalf.
leak ended file 250 >taken_ended &
ended=$!
for name in pipes files events sockets ended; do
	await 10 grep -q taken "taken_$name"
done
kill "$ended"
wait "$ended" || true
end_hunt
after=$(footprint filp)

callers hunted >records
seen() { # KIND COMM FRAME: the events of a task along a function
	awk -F '|' -v kind="$1" -v comm="$2" -v frame="$3" \
		'$1 == kind && $6 == comm && index($7, frame) { n += $2 } END { print n + 0 }' records
}
equal "pipes, allocated" "$(seen alloc pipes create_pipe_files)" 600
equal "files, allocated" "$(seen alloc files path_openat)" 700
equal "eventfds, allocated" "$(seen alloc events alloc_empty_file)" 200
equal "sockets, allocated" "$(seen alloc sockets sock_alloc_file)" 100
equal "opened and closed" "$(seen alloc closer path_openat)" 400
equal "opened and ended" "$(seen alloc ended path_openat)" 250
for name in pipes files events sockets; do
	equal "$name, freed" "$(seen free $name '')" 0
done
equal "closed" "$(seen free closer close)" 400
# Besides its own objects, a program counts those it was started with (its binary and three standard
# descriptors).
between "freed at the end" "$(seen free ended do_exit)" 250 254

# The call site is the first frame, the system call the last.
awk -F '|' '$6 == "files" { split($7, frame, " "); print frame[1] }' records >first
grep -q '^alloc_empty_file+' first || fail "the first frame is $(cat first)"
awk -F '|' '$1 == "alloc" && $6 == "pipes" && !index($7, "do_pipe2")' records >other
[ ! -s other ] || fail "not the system call's path: $(cat other)"

# The growth is real memory of the cache: at least what is still held, at most all that was ever
# allocated. Nobody else moves it by more than a few slabs.
size=$(slab_field filp 4)
grown=$((($(sed -n 's/.*"end_kib": \([0-9]*\).*/\1/p' hunted) - \
	$(sed -n 's/.*"start_kib": \([0-9]*\).*/\1/p' hunted)) * 1024))
between "growth, bytes" "$grown" $((1600 * size - 65536)) $((2250 * size + 65536))
between "growth by slabinfo" "$grown" $((after - before - 65536)) $((after - before + 65536))
expect_line tarn_slub_track_off '[0-9]+\+[0-9]+=[0-9]+kB'
expect_line get_max_slub 'slub track specify target filp'
expect_line tarn_slub_track_on 'slub name\[filp\] ok'
# Three programs share one stack.
expect_line tarn_slub_stack_read 'top0 Alloc .* cnt:\[700/1350\] size: [0-9]+ KB pid:\[[0-9]+-[0-9]+\] files'
expect_line tarn_slub_stack_read 'filp Alloc [0-9]+ items'
expect_line tarn_slub_stack_read 'filp Free [0-9]+ items'

# A cache that does not exist.
refused tarnctl hunt --device /dev/tarn_memcheck --cache no_such_cache --seconds 1
equal "tracking after a refused hunt" "$(cat "$parameters"/slub_track_flag)" 0

# An interrupted hunt ends early, prints its readout and leaves tracking off.
during_hunt --cache filp --seconds 60
leak early file 80 closed >/dev/null
kill -INT "$hunt"
end_hunt
grep -q early hunted || fail "the interrupted hunt lost its events: $(cat hunted)"
