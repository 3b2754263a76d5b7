#!/usr/bin/env bash
# An editor opening a project of 100 short clips, against the command-line tools.
#   bash bench/timeline/run.sh            # everything, RUNS=3 runs per method
#   RUNS=5 TOOL_RUNS=1 METHODS="library ffmpeg" bash bench/timeline/run.sh
#   bash bench/timeline/run.sh table      # print the table of the last results again
# Methods: library, ffmpeg, thumbnailer (timed RUNS times each), phases (where the
# library's time goes, once), hover (single requests on an opened file, once), cache
# (the project opened twice, in two processes, with a fresh preview cache: RUNS pairs).
# Media is made once with the ffmpeg tool into build/timeline-media; results go to
# build/timeline-out (results.tsv, table.md, one log per run).
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
BUILD=${BUILD:-$ROOT/build/release}
MEDIA=${MEDIA:-$ROOT/build/timeline-media}
OUT=${OUT:-$ROOT/build/timeline-out}
RUNS=${RUNS:-3}
TOOL_RUNS=${TOOL_RUNS:-$RUNS} # runs of the ffmpeg and ffmpegthumbnailer methods
METHODS=${METHODS:-"library ffmpeg thumbnailer phases hover cache"}
DRIVER=$BUILD/bench/timeline/bench_editor
LIST=$MEDIA/timeline.list
RESULTS=$OUT/results.tsv
FF="ffmpeg -hide_banner -nostdin -v error"

log() { printf '%s %s\n' "$(date +%T)" "$*" >&2; }
want() { [[ " $METHODS " == *" $1 "* ]]; }

TABLE_ONLY=0
[[ ${1:-} == table ]] && TABLE_ONLY=1

if [[ $TABLE_ONLY == 0 ]]; then
# --- build -------------------------------------------------------------------------------
if [[ ! -f $BUILD/build.ninja ]]; then
    cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVR_BUILD_TESTS=OFF \
        -DVR_BUILD_EXAMPLES=OFF >/dev/null
fi
nice ninja -C "$BUILD" -j2 bench_editor >/dev/null
mkdir -p "$MEDIA" "$OUT"

# --- media (cached) ----------------------------------------------------------------------
# Clip i of 100: 3 to 6 s (i mod 4), testsrc2 at 25 fps (every eighth H.264 clip at
# 30 fps with a key frame every second, as phones record) and a tone of its own.
# Of every 20 clips: 8 H.264 (MP4, AAC; encoder's GOP: one key frame per clip), 4 HEVC
# (MP4, AAC), 2 ProRes proxy (MOV, PCM; the first ten without sound), 3 VP9 (WebM,
# Opus), 3 audio only (M4A, MP3, WAV). Sizes from 640x360 to 1920x1080; three clips
# (two H.264, one HEVC) are 3840x2160 and 3 s long. Clips 20 to 99 reuse the pictures
# of clips 0 to 19.
clip_args() { # index -> "name kind duration_s ffmpeg-arguments..."
    local i=$1 d=$((3 + $1 % 4)) k=$(($1 % 20)) rate=25 size v a kind=av ext
    local tone="-f lavfi -i sine=frequency=$((200 + 7 * i)):sample_rate=48000:duration=$d"
    case $k in
    0 | 5) size=640x360 ;; 1 | 4 | 6) size=1280x720 ;; 2) size=854x480 ;; 3) size=1920x1080 ;; 7) size=720x576 ;;
    8) size=640x360 ;; 9) size=1280x720 ;; 10) size=1920x1080 ;; 11) size=854x480 ;;
    12) size=1280x720 ;; 13) size=1920x1080 ;; 14) size=640x360 ;; 15) size=854x480 ;; 16) size=1280x720 ;;
    esac
    local big=0
    if ((i == 40 || i == 60 || i == 69)); then big=1 size=3840x2160 d=3 tone="${tone%duration=*}duration=3"; fi
    case $k in
    [0-7])
        ext=mp4 v="-c:v libx264 -preset veryfast -pix_fmt yuv420p" a="-c:a aac -b:a 128k"
        ((k == 6)) && rate=30 v="$v -g 30 -keyint_min 30 -sc_threshold 0" ;;
    8 | 9 | 10 | 11) ext=mp4 v="-c:v libx265 -preset ultrafast -pix_fmt yuv420p -tag:v hvc1 -x265-params log-level=error" a="-c:a aac -b:a 128k" ;;
    12 | 13) ext=mov v="-c:v prores_ks -profile:v 0" a="-c:a pcm_s16le"; ((i < 60)) && kind=v ;;
    14 | 15 | 16) ext=webm v="-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -row-mt 1 -b:v 1M" a="-c:a libopus -b:a 96k" ;;
    17) echo "clip$i.m4a a $d $tone -c:a aac -b:a 128k"; return ;;
    18) echo "clip$i.mp3 a $d $tone -c:a libmp3lame -b:a 192k"; return ;;
    19) echo "clip$i.wav a $d $tone -c:a pcm_s16le"; return ;;
    esac
    local video="-f lavfi -i testsrc2=size=$size:rate=$rate:duration=$d"
    # Clip i + 20 k has the pictures of clip i (same kind, size and length; only the
    # sound is its own): copied, so that only 20 clips are encoded.
    if ((i >= 20 && !big)); then
        video="-i $MEDIA/clip$((i % 20)).$ext" v="-c:v copy"
        [[ $kind == av ]] && v="-map 0:v -map 1:a $v"
    fi
    if [[ $kind == v ]]; then
        echo "clip$i.$ext v $d $video $v"
    else
        echo "clip$i.$ext av $d $video $tone $v $a -shortest"
    fi
}
if [[ ! -s $LIST && -z ${SKIP_MEDIA:-} ]]; then
    log "making 100 clips in $MEDIA"
    for ((i = 0; i < 100; i++)); do
        read -r name kind d args <<<"$(clip_args $i)"
        if [[ ! -s $MEDIA/$name ]]; then
            # shellcheck disable=SC2086 # the arguments are words
            $FF -y $args "$MEDIA/part.$name" >&2
            mv "$MEDIA/part.$name" "$MEDIA/$name"
        fi
        printf '%s\t%s\t%d\n' "$MEDIA/$name" "$kind" $((d * 1000))
    done >"$LIST.part"
    mv "$LIST.part" "$LIST"
fi
# Hover previews: one minute of 1080p H.264 with a key frame every 10 s.
if want hover && [[ ! -s $MEDIA/hover.mp4 ]]; then
    log "making hover.mp4"
    $FF -y -f lavfi -i testsrc2=size=1920x1080:rate=25:duration=60 -c:v libx264 -preset veryfast \
        -pix_fmt yuv420p -g 250 -sc_threshold 0 "$MEDIA/part.hover.mp4" && mv "$MEDIA/part.hover.mp4" "$MEDIA/hover.mp4"
fi
"$DRIVER" plan "$LIST" >"$OUT/plan.tsv"

# --- runs --------------------------------------------------------------------------------
# run METHOD N command...: N runs under /usr/bin/time; keeps "wall user sys maxrss_kb"
# and the program's output of each run.
run() {
    local method=$1 runs=$2
    shift 2
    : >"$OUT/$method.times"
    for ((r = 1; r <= runs; r++)); do
        log "$method run $r"
        /usr/bin/time -f '%e %U %S %M' -o "$OUT/time.tmp" "$@" >"$OUT/$method.$r.log" 2>"$OUT/$method.$r.err" || {
            echo "FAILED: $method (see $OUT/$method.$r.err)" >&2
            return 1
        }
        tail -n 1 "$OUT/time.tmp" >>"$OUT/$method.times"
    done
}

# The tools, one clip after the other (the library's pool runs one clip at a time on
# this 2-core machine), single-threaded decoders; after each clip the script notes
# the milliseconds since its start (the clip's pictures are all there then).
# ffmpeg: one process per clip: the five targets with accurate seeking (-ss before
# each input), scaled to 160, and the audio decoded to 8-bit mono at 48 kHz.
awk -F'\t' -v out="$OUT/ffmpeg.pics" -v ff="$FF" '
    BEGIN { print "start=$(date +%s%N)"; print "mkdir -p " out }
    {
        cmd = ff; maps = ""; n = 0
        if ($3 != "-") {
            split($3, t, ",")
            for (j = 1; j in t; j++) {
                cmd = cmd sprintf(" -threads 1 -ss %.3f -i %s", t[j] / 1000, $1)
                maps = maps sprintf(" -map %d:v:0 -frames:v 1 -vf scale=160:-1 -y %s/c%d_%d.png", n++, out, NR - 1, j)
            }
        }
        if ($4 > 0) {
            cmd = cmd " -threads 1 -i " $1
            maps = maps sprintf(" -map %d:a:0 -ac 1 -ar 48000 -f u8 -y /dev/null", n)
        }
        print cmd maps
        print "echo $(( ($(date +%s%N) - start) / 1000000 ))"
    }' "$OUT/plan.tsv" >"$OUT/ffmpeg.sh"
# ffmpegthumbnailer: one process per thumbnail at the same share of the clip (it
# takes a percentage); it does not make waveforms.
awk -F'\t' -v out="$OUT/thumbnailer.pics" '
    BEGIN { print "start=$(date +%s%N)"; print "mkdir -p " out }
    $3 != "-" {
        for (j = 1; j <= 5; j++)
            printf "ffmpegthumbnailer -i %s -o %s/c%d_%d.png -s 160 -t %d%% -c png >/dev/null 2>&1\n", $1, out, NR - 1, j, 20 * j - 10
        print "echo $(( ($(date +%s%N) - start) / 1000000 ))"
    }' "$OUT/plan.tsv" >"$OUT/thumbnailer.sh"

uptime >"$OUT/uptime.before"
log "load before: $(cat "$OUT/uptime.before")"
want library && run library "$RUNS" "$DRIVER" open "$LIST" --per-clip "$OUT/library.clips.tsv"
if want cache; then
    # Each pair: a first open into an empty cache folder, then a second open in a new
    # process; the digests of every answer must be the same.
    : >"$OUT/cache-first.times" && : >"$OUT/cache-second.times" && : >"$OUT/cache.digests"
    for ((r = 1; r <= RUNS; r++)); do
        rm -rf "$OUT/cache.dir"
        for open in first second; do
            log "cache $open open, pair $r"
            /usr/bin/time -f '%e %U %S %M' -o "$OUT/time.tmp" "$DRIVER" open "$LIST" --cache-dir "$OUT/cache.dir" \
                --digest "$OUT/cache-$open.$r.digest" >"$OUT/cache-$open.$r.log" 2>"$OUT/cache-$open.$r.err" ||
                echo "FAILED: cache $open (see $OUT/cache-$open.$r.err)" >&2
            tail -n 1 "$OUT/time.tmp" >>"$OUT/cache-$open.times"
        done
        if cmp -s "$OUT/cache-first.$r.digest" "$OUT/cache-second.$r.digest"; then same=identical; else same=DIFFERENT; fi
        echo "pair $r: $(wc -l <"$OUT/cache-first.$r.digest") answers, digests $same, cache $(du -sk "$OUT/cache.dir" | cut -f1) KB" >>"$OUT/cache.digests"
    done
fi
want ffmpeg && run ffmpeg "$TOOL_RUNS" bash "$OUT/ffmpeg.sh"
want thumbnailer && command -v ffmpegthumbnailer >/dev/null && run thumbnailer "$TOOL_RUNS" bash "$OUT/thumbnailer.sh"
if want phases; then
    log "phases"
    "$DRIVER" phases "$LIST" >"$OUT/phases.log"
fi
if want hover; then
    log "hover"
    "$DRIVER" hover "$MEDIA/hover.mp4" --duration 60000 --count 30 >"$OUT/hover.log"
    # The tool for one hover request: a process per picture, accurate seeking.
    : >"$OUT/hover-ffmpeg.ms"
    for t in 7.37 37.37 14.11 44.11 21.85 51.85 28.59 58.59 35.33 5.33 42.07 12.07; do
        s=$(date +%s%N)
        $FF -threads 1 -ss "$t" -i "$MEDIA/hover.mp4" -frames:v 1 -vf scale=160:-1 -y "$OUT/hover-ffmpeg.png"
        echo $((($(date +%s%N) - s) / 1000000)) >>"$OUT/hover-ffmpeg.ms"
    done
fi
uptime >"$OUT/uptime.after"
log "load after: $(cat "$OUT/uptime.after")"
fi # TABLE_ONLY

# --- table -------------------------------------------------------------------------------
# median of a column of numbers read from stdin; "p95" with the second argument 95
stat() { sort -n | awk -v p="${1:-50}" '{ v[NR] = $1 } END { if (!NR) { print "-"; exit } r = int(p / 100 * NR + 0.9999); if (r < 1) r = 1; printf "%g", v[r] }'; }
{
    echo "| method | runs | wall median s (min-max) | CPU median s | peak RSS median MB | first thumbnail of a clip, median / p95 ms | all thumbnails of a clip, median / p95 ms | all thumbnails s | everything s |"
    echo "|---|---|---|---|---|---|---|---|---|"
    for method in library cache-first cache-second ffmpeg thumbnailer; do
        [[ -s $OUT/$method.times ]] || continue
        n=$(wc -l <"$OUT/$method.times")
        wall=$(awk '{ print $1 }' "$OUT/$method.times" | stat)
        wmin=$(awk '{ print $1 }' "$OUT/$method.times" | sort -n | head -n 1)
        wmax=$(awk '{ print $1 }' "$OUT/$method.times" | sort -n | tail -n 1)
        cpu=$(awk '{ print $2 + $3 }' "$OUT/$method.times" | stat)
        rss=$(awk '{ printf "%.1f\n", $4 / 1024 }' "$OUT/$method.times" | stat)
        # The run with the median wall time stands for the per-clip figures.
        mid=$(awk '{ print $1, NR }' "$OUT/$method.times" | sort -n | awk -v n="$n" 'NR == int((n + 1) / 2) { print $2 }')
        if [[ $method == library || $method == cache-* ]]; then
            field() { grep -o "$1 median=[0-9.]* p95=[0-9.]*" "$OUT/$method.$mid.log" | sed 's/.*median=\([0-9.]*\) p95=\([0-9.]*\)/\1 \/ \2/'; }
            first=$(field first_thumb_ms)
            done_=$(field clip_thumbs_ms)
            thumbs=$(grep -o 'all_thumbs_ms=[0-9]*' "$OUT/$method.$mid.log" | awk -F= '{ printf "%.2f", $2 / 1000 }')
            all=$(grep -o 'all_ms=[0-9]*' "$OUT/$method.$mid.log" | awk -F= '{ printf "%.2f", $2 / 1000 }')
        else
            # The tools deliver a clip's pictures together, when its process ends.
            first="- / -"
            done_="$(stat <"$OUT/$method.$mid.log") / $(stat 95 <"$OUT/$method.$mid.log")"
            thumbs=$(tail -n 1 "$OUT/$method.$mid.log" | awk '{ printf "%.2f", $1 / 1000 }')
            all=$thumbs
            [[ $method == thumbnailer ]] && all="(no waveforms)"
        fi
        echo "| $method | $n | $wall ($wmin-$wmax) | $cpu | $rss | $first | $done_ | $thumbs | $all |"
    done
    if [[ -s $OUT/cache.digests ]]; then
        echo
        echo "Second open against the first (medians over the pairs; the programme's own clock, and the process's CPU):"
        echo
        ms() { grep -o 'all_ms=[0-9]*' "$@" | awk -F= '{ print $NF }' | stat; }
        cpu() { awk '{ print $2 + $3 }' "$1" | stat; }
        echo "- everything: $(ms "$OUT"/cache-first.*.log) ms / $(ms "$OUT"/cache-second.*.log) ms = $(awk -v a="$(ms "$OUT"/cache-first.*.log)" -v b="$(ms "$OUT"/cache-second.*.log)" 'BEGIN { printf "%.1fx faster", a / (b > 0 ? b : 1) }')"
        echo "- process CPU: $(cpu "$OUT/cache-first.times") s / $(cpu "$OUT/cache-second.times") s = $(awk -v a="$(cpu "$OUT/cache-first.times")" -v b="$(cpu "$OUT/cache-second.times")" 'BEGIN { printf "%.1fx less", a / b }')"
        sed 's/^/- /' "$OUT/cache.digests"
    fi
    if [[ -s $OUT/phases.log ]]; then
        echo
        echo "Where the library's time goes (the pickers' steps redone one after the other on one thread, once):"
        echo
        echo "| phase | calls | wall ms | CPU ms | share of CPU |"
        echo "|---|---|---|---|---|"
        sed -n 's/^phase=\([^ ]*\) calls=\([0-9]*\) wall_ms=\([0-9.]*\) cpu_ms=\([0-9.]*\) cpu_share=\([0-9.]*%\)/| \1 | \2 | \3 | \4 | \5 |/p' "$OUT/phases.log"
    fi
    if [[ -s $OUT/hover.log ]]; then
        echo
        echo "Hover previews on hover.mp4 (1 min, 1080p H.264, a key frame every 10 s), one request at a time, ms:"
        echo
        echo '```'
        grep '^hover' "$OUT/hover.log"
        echo "ffmpeg tool, one process per picture: n=$(wc -l <"$OUT/hover-ffmpeg.ms") median=$(stat <"$OUT/hover-ffmpeg.ms") p95=$(stat 95 <"$OUT/hover-ffmpeg.ms")"
        echo '```'
    fi
    echo
    echo "Load before: $(cat "$OUT/uptime.before" 2>/dev/null)"
    echo "Load after: $(cat "$OUT/uptime.after" 2>/dev/null)"
} >"$OUT/table.md"
cat "$OUT/table.md"
