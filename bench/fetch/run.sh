#!/usr/bin/env bash
# Times the fetch service against the command-line tools a user would otherwise run.
#   bash bench/fetch/run.sh                 # everything, RUNS=3 runs per measurement
#   RUNS=5 JOBS="long phone" bash bench/fetch/run.sh
#   JOBS=long METHODS="library decode-floor-1thread" bash bench/fetch/run.sh
# Jobs: long (thumbnails, long-GOP file), phone (thumbnails, 1 s GOP), wave (waveform of
# 60 min AAC and MP3), memory (10 repeated batches in one process), colour (conversion
# of decoded frames to thumbnails with and without colour handling, SDR and HDR10).
# Media is made once with the ffmpeg tool into build/bench-media; results go to
# build/bench-out (results.tsv, table.md, logs). Needs: ffmpeg, ffprobe, /usr/bin/time
# (package "time", installed when missing and run as root), ffmpegthumbnailer (optional).
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
BUILD=${BUILD:-$ROOT/build/release}
MEDIA=${MEDIA:-$ROOT/build/bench-media}
OUT=${OUT:-$ROOT/build/bench-out}
RUNS=${RUNS:-3}
JOBS=${JOBS:-"long phone wave memory colour"}
# Methods measured within the jobs (for example METHODS="library decode-floor-1thread").
METHODS=${METHODS:-"library ffmpeg-per-target ffmpeg-select-pass ffmpegthumbnailer-per-target decode-floor-1thread ffmpeg-decode-resample"}
TOLERANCE=${TOLERANCE:-2.5}
DRIVER=$BUILD/bench/fetch/bench_fetch
RESULTS=$OUT/results.tsv
FF="ffmpeg -hide_banner -nostdin -v error"

log() { printf '%s %s\n' "$(date +%T)" "$*" >&2; }
want() { [[ " $JOBS " == *" $1 "* ]]; }

# "bash bench/fetch/run.sh table" prints the table of the last results again.
TABLE_ONLY=0
[[ ${1:-} == table ]] && TABLE_ONLY=1

# --- tools -------------------------------------------------------------------------------
if [[ ! -x /usr/bin/time ]]; then
    if [[ $(id -u) == 0 ]]; then
        DEBIAN_FRONTEND=noninteractive apt-get install -y time >/dev/null
    else
        echo "install the package 'time' (/usr/bin/time)" >&2
        exit 1
    fi
fi
HAVE_THUMBNAILER=0
command -v ffmpegthumbnailer >/dev/null && HAVE_THUMBNAILER=1

if [[ $TABLE_ONLY == 0 ]]; then
# --- build -------------------------------------------------------------------------------
if [[ ! -f $BUILD/build.ninja ]]; then
    cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVR_BUILD_TESTS=OFF \
        -DVR_BUILD_EXAMPLES=OFF >/dev/null
fi
nice ninja -C "$BUILD" -j2 bench_fetch >/dev/null

mkdir -p "$MEDIA" "$OUT"

# --- media (cached) ----------------------------------------------------------------------
# Video content: testsrc2 (moving elements, so that neighbouring frames differ).
make_media() { # name, ffmpeg arguments...
    local name=$1
    shift
    if [[ ! -s $MEDIA/$name && -z ${SKIP_MEDIA:-} ]]; then
        log "making $name"
        $FF -y "$@" "$MEDIA/$name.part.${name##*.}"
        mv "$MEDIA/$name.part.${name##*.}" "$MEDIA/$name"
    fi
}
# Only the media of the jobs asked for are made.
# x264 defaults for the GOP (keyint 250, scene-cut detection, 3 B-frames); preset
# veryfast only to keep encoding short.
# The HD files are tagged BT.709 as cameras tag them, so that the ffmpeg tool and the
# library read their colours alike (untagged, the tool reads HD as BT.601, players and
# the library as BT.709).
BT709=(-colorspace bt709 -color_primaries bt709 -color_trc bt709)
want long && make_media longgop.mp4 -f lavfi -i testsrc2=size=1920x1080:rate=25:duration=180 \
    -c:v libx264 -preset veryfast -pix_fmt yuv420p "${BT709[@]}"
# Phone-like: 30 fps, a keyframe every second.
{ want phone || want memory; } && make_media phone.mp4 -f lavfi -i testsrc2=size=1920x1080:rate=30:duration=120 \
    -c:v libx264 -preset veryfast -pix_fmt yuv420p -g 30 -keyint_min 30 -sc_threshold 0 "${BT709[@]}"
# Audio: a stereo 440 Hz tone whose loudness swells and fades every 10 s.
if want wave; then
make_media audio60.wav -f lavfi -i sine=frequency=440:sample_rate=48000:duration=3600 \
    -af "volume='0.1+0.9*abs(sin(PI*t/10))':eval=frame" -ac 2 -c:a pcm_s16le
make_media audio60.m4a -i "$MEDIA/audio60.wav" -c:a aac -b:a 128k
make_media audio60.mp3 -i "$MEDIA/audio60.wav" -c:a libmp3lame -b:a 192k
fi

# --- helpers -----------------------------------------------------------------------------
printf 'job\tmethod\truns\twall_med_s\twall_min_s\twall_max_s\tcpu_med_s\trss_med_mb\texact\n' >"$RESULTS"

# measure JOB METHOD EXACT-SCRIPT -- command...: RUNS runs under /usr/bin/time; EXACT-SCRIPT
# (may be "-") is run after the last run and prints the exactness column.
measure() {
    local job=$1 method=$2 exactCmd=$3
    shift 4
    [[ " $METHODS " == *" $method "* ]] || return 0
    local samples=$OUT/$job.$method.samples
    : >"$samples"
    for ((r = 1; r <= RUNS; r++)); do
        log "$job / $method run $r"
        /usr/bin/time -f '%e %U %S %M' -o "$OUT/time.tmp" "$@" >"$OUT/$job.$method.log" 2>&1 || {
            echo "FAILED: $job $method (see $OUT/$job.$method.log)" >&2
            cat "$OUT/time.tmp" >>"$OUT/$job.$method.log"
            return 1
        }
        tail -n 1 "$OUT/time.tmp" >>"$samples"
    done
    local exact="-"
    [[ $exactCmd != - ]] && exact=$(eval "$exactCmd")
    awk -v job="$job" -v method="$method" -v exact="$exact" '
        { wall[NR] = $1; cpu[NR] = $2 + $3; rss[NR] = $4 / 1024 }
        function median(a, n,   i, j, t, b) {
            for (i = 1; i <= n; i++) b[i] = a[i]
            for (i = 1; i <= n; i++) for (j = i + 1; j <= n; j++) if (b[j] < b[i]) { t = b[i]; b[i] = b[j]; b[j] = t }
            return n % 2 ? b[(n + 1) / 2] : (b[n / 2] + b[n / 2 + 1]) / 2
        }
        END {
            mn = wall[1]; mx = wall[1]
            for (i = 2; i <= NR; i++) { if (wall[i] < mn) mn = wall[i]; if (wall[i] > mx) mx = wall[i] }
            printf "%s\t%s\t%d\t%.2f\t%.2f\t%.2f\t%.2f\t%.1f\t%s\n", job, method, NR, median(wall, NR), mn, mx, median(cpu, NR), median(rss, NR), exact
        }' "$samples" >>"$RESULTS"
    tail -n 1 "$RESULTS" >&2
}

# Targets: frame numbers; prints "frame ms seconds hh:mm:ss" per target.
# targets FPS COUNT FIRST_FRAME STEP_FRAMES
targets() {
    awk -v fps="$1" -v n="$2" -v first="$3" -v step="$4" 'BEGIN {
        for (i = 0; i < n; i++) {
            f = first + i * step
            us = int(f * 1000000 / fps)
            s = int(us / 1000000)
            printf "%d %d %d.%06d %02d:%02d:%02d\n", f, int(us / 1000), s, us % 1000000, s / 3600, (s % 3600) / 60, s % 60
        }
    }'
}

# Reference frames: the frames before, at and after each target, decoded in full and
# scaled to the thumbnail width (cached next to the media).
make_references() { # file targets-file dir first step count
    local file=$1 list=$2 dir=$3 first=$4 step=$5 count=$6
    if [[ -s $dir/done ]] && cmp -s "$list" "$dir/targets"; then return; fi
    log "reference frames for $(basename "$file")"
    rm -rf "$dir" && mkdir -p "$dir"
    local last=$((first + (count - 1) * step + 1))
    $FF -i "$file" -vf "select='between(n\,$((first - 1))\,$last)*lte(mod(n-$((first - 1))\,$step)\,2)',scale=160:-1" \
        -fps_mode passthrough -start_number 0 "$dir/ref_%04d.png"
    cp "$list" "$dir/targets" && echo ok >"$dir/done"
}

# Frames the exact-seek path decodes (from the keyframe at or before each target up to it,
# plus the decoder's reordering delay, which it must fill before the target comes out) and
# what reading on decodes (continue from the previous target when it lies in the same GOP;
# the delay is paid once per seek), as the library does. Prints "seek readOn total delay".
decode_work() { # file fps targets-file
    local file=$1 fps=$2 list=$3
    ffprobe -v error -select_streams v:0 -show_entries packet=pts_time,flags -of csv=p=0 "$file" |
        awk -F, -v fps="$fps" '$2 ~ /K/ { printf "%d\n", $1 * fps + 0.5 }' | sort -n >"$OUT/keyframes.tmp"
    local total delay
    total=$(ffprobe -v error -select_streams v:0 -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$file")
    delay=$(ffprobe -v error -select_streams v:0 -show_entries stream=has_b_frames -of csv=p=0 "$file")
    awk -v total="$total" -v delay="$delay" '
        NR == FNR { key[++nk] = $1; next }
        {
            f = $1; k = 0
            for (i = 1; i <= nk; i++) if (key[i] <= f) k = key[i]
            seek += f - k + 1 + delay
            if (prev >= k && prevKey == k) readOn += f - prev
            else readOn += f - k + 1 + delay
            prev = f; prevKey = k
        }
        END { printf "%d %d %d %d\n", seek, readOn, total, delay }' prev=-1 "$OUT/keyframes.tmp" "$list"
}

# Thumbnail job: library batch, ffmpeg per target, ffmpeg one pass with select,
# ffmpegthumbnailer per target, and the single-threaded decode floor.
thumb_job() { # job file fps count first step
    local job=$1 file=$2 fps=$3 count=$4 first=$5 step=$6
    local list=$OUT/$job.targets
    targets "$fps" "$count" "$first" "$step" >"$list"
    local refs=$MEDIA/refs-$job
    make_references "$file" "$list" "$refs" "$first" "$step" "$count"
    local match="$DRIVER match $refs"

    local times
    times=$(awk '{ printf "%s%d", (NR > 1 ? "," : ""), $2 }' "$list")
    measure "$job" library "$match $OUT/$job.library --count $count --tolerance $TOLERANCE | tee $OUT/$job.library.match | tail -n 1 | sed 's/ .*//;s/exact=//'" -- \
        bash -c "rm -rf '$OUT/$job.library' && exec '$DRIVER' thumbs '$file' --times '$times' --width 160 --out '$OUT/$job.library'"

    # The decoders of the tools run single-threaded, like the library's on this machine.
    awk -v f="$file" -v o="$OUT/$job.cli" -v ff="$FF" '{ printf "%s -threads 1 -ss %s -i %s -frames:v 1 -vf scale=160:-1 -y %s/thumb_%03d.png\n", ff, $3, f, o, NR - 1 }' \
        "$list" >"$OUT/$job.cli.sh"
    measure "$job" ffmpeg-per-target "$match $OUT/$job.cli --count $count --tolerance $TOLERANCE | tail -n 1 | sed 's/ .*//;s/exact=//'" -- \
        bash -c "rm -rf '$OUT/$job.cli' && mkdir -p '$OUT/$job.cli' && bash '$OUT/$job.cli.sh'"

    # (an arithmetic series: FFmpeg's expressions are too shallow for a sum of 120 terms)
    local expr="between(n\\,$first\\,$((first + (count - 1) * step)))*not(mod(n-$first\\,$step))"
    measure "$job" ffmpeg-select-pass "$match $OUT/$job.select --count $count --tolerance $TOLERANCE | tail -n 1 | sed 's/ .*//;s/exact=//'" -- \
        bash -c "rm -rf '$OUT/$job.select' && mkdir -p '$OUT/$job.select' && $FF -threads 1 -i '$file' -vf \"select='$expr',scale=160:-1\" -fps_mode passthrough -start_number 0 '$OUT/$job.select/thumb_%03d.png'"

    if [[ $HAVE_THUMBNAILER == 1 ]]; then
        awk -v f="$file" -v o="$OUT/$job.ft" '{ printf "ffmpegthumbnailer -i %s -o %s/thumb_%03d.png -s 160 -t %s -c png >/dev/null 2>&1\n", f, o, NR - 1, $4 }' \
            "$list" >"$OUT/$job.ft.sh"
        measure "$job" ffmpegthumbnailer-per-target "$match $OUT/$job.ft --count $count --tolerance $TOLERANCE | tail -n 1 | sed 's/ .*//;s/exact=//'" -- \
            bash -c "rm -rf '$OUT/$job.ft' && mkdir -p '$OUT/$job.ft' && bash '$OUT/$job.ft.sh'"
    fi

    measure "$job" decode-floor-1thread - -- $FF -threads 1 -i "$file" -f null -
    decode_work "$file" "$fps" "$list" >"$OUT/$job.decodework"
}

# --- jobs --------------------------------------------------------------------------------
uptime >"$OUT/uptime.before"
log "load before: $(cat "$OUT/uptime.before")"

# 60 targets on whole seconds 1, 4, ..., 178 (ffmpegthumbnailer takes whole seconds only).
want long && thumb_job long "$MEDIA/longgop.mp4" 25 60 25 75
# 120 targets at 0.5 s, 1.5 s, ...: mid-GOP, 15 frames after each keyframe.
want phone && thumb_job phone "$MEDIA/phone.mp4" 30 120 15 30

if want wave; then
    for f in audio60.m4a audio60.mp3; do
        tag=wave-${f##*.}
        # one value per 10 ms over 60 minutes, in 4 pieces
        measure "$tag" library - -- "$DRIVER" wave "$MEDIA/$f" --length 3600000 --values 360000 --pieces 4 --out "$OUT/$tag.peaks"
        measure "$tag" ffmpeg-decode-resample - -- $FF -i "$MEDIA/$f" -ac 1 -ar 48000 -f u8 -y /dev/null
    done
fi

if want memory; then
    # 12 thumbnails (one every 10 s of the phone-like file), the same batch 10 times.
    times=$(targets 30 12 15 300 | awk '{ printf "%s%d", (NR > 1 ? "," : ""), $2 }')
    log "memory: 10 repeated batches"
    /usr/bin/time -f '%e %U %S %M' -o "$OUT/time.tmp" \
        "$DRIVER" thumbs "$MEDIA/phone.mp4" --times "$times" --width 160 --batches 10 >"$OUT/memory.log" 2>"$OUT/memory.err"
    cat "$OUT/memory.log" >&2
fi

if want colour; then
    # BT.709 1080p SDR and 4K HDR10 (PQ, BT.2020, 10-bit HEVC), one second each.
    make_media colour-sdr.mp4 -f lavfi -i testsrc2=size=1920x1080:rate=25:duration=1 \
        -c:v libx264 -preset veryfast -pix_fmt yuv420p "${BT709[@]}"
    make_media colour-hdr.mp4 -f lavfi -i testsrc2=size=3840x2160:rate=25:duration=1 \
        -vf format=gbrp,zscale=rin=full:tin=bt709:pin=bt709:min=gbr:t=smpte2084:p=bt2020:m=2020_ncl:r=tv:npl=100,format=yuv420p10le \
        -c:v libx265 -preset ultrafast -x265-params log-level=error -colorspace bt2020nc -color_primaries bt2020 -color_trc smpte2084
    log "colour: conversion to 160-px thumbnails"
    for f in colour-sdr.mp4 colour-hdr.mp4; do
        "$DRIVER" convert "$MEDIA/$f" --width 160 --frames 10 --rounds 10
    done >"$OUT/colour.log"
    cat "$OUT/colour.log" >&2
fi

uptime >"$OUT/uptime.after"
log "load after: $(cat "$OUT/uptime.after")"

fi # TABLE_ONLY

# --- table -------------------------------------------------------------------------------
{
    echo "| job | method | runs | wall median s (min-max) | CPU median s | peak RSS MB | exact frames |"
    echo "|---|---|---|---|---|---|---|"
    awk -F'\t' 'NR > 1 { printf "| %s | %s | %d | %.2f (%.2f-%.2f) | %.2f | %.1f | %s |\n", $1, $2, $3, $4, $5, $6, $7, $8, $9 }' "$RESULTS"
    echo
    # Ratios on wall time and on CPU time (CPU is the steadier of the two on a busy machine).
    col() { awk -F'\t' -v j="$1" -v m="$2" -v c="$3" '$1 == j && $2 == m { print $c }' "$RESULTS"; }
    for job in long phone; do
        [[ -s $OUT/$job.decodework ]] || continue
        read -r seek readOn total delay <"$OUT/$job.decodework"
        n=$(wc -l <"$OUT/$job.targets")
        awk -v job="$job" -v seek="$seek" -v readOn="$readOn" -v total="$total" -v delay="$delay" -v n="$n" \
            -v fw="$(col "$job" decode-floor-1thread 4)" -v fc="$(col "$job" decode-floor-1thread 7)" \
            -v lw="$(col "$job" library 4)" -v lc="$(col "$job" library 7)" -v lr="$(col "$job" library 8)" \
            -v pr="$(col "$job" ffmpeg-per-target 8)" -v sr="$(col "$job" ffmpeg-select-pass 8)" 'BEGIN {
            printf "- %s: %d targets. Reading on when the next target lies in the same GOP (as the library does) decodes %d frames; seeking for every target would decode %d; the file has %d.\n", job, n, readOn, seek, total
            printf "  Library / single-threaded decode floor: %.2fx wall, %.2fx CPU.\n", lw / fw, lc / fc
            printf "  Per-thumbnail cost beyond the decoding it needs (floor cost per frame x %d frames): %.1f ms wall, %.1f ms CPU.\n", readOn, (lw - readOn * fw / total) / n * 1000, (lc - readOn * fc / total) / n * 1000
            if (pr > 0 && sr > 0) printf "  Peak RSS library / ffmpeg per target: %.2fx; / ffmpeg select pass: %.2fx.\n", lr / pr, lr / sr
        }'
    done
    for tag in wave-m4a wave-mp3; do
        lw=$(col "$tag" library 4)
        [[ -n $lw ]] || continue
        awk -v tag="$tag" -v lw="$lw" -v lc="$(col "$tag" library 7)" -v lr="$(col "$tag" library 8)" \
            -v cw="$(col "$tag" ffmpeg-decode-resample 4)" -v cc="$(col "$tag" ffmpeg-decode-resample 7)" \
            -v cr="$(col "$tag" ffmpeg-decode-resample 8)" 'BEGIN {
            printf "- %s: library / ffmpeg decode-and-resample: %.2fx wall, %.2fx CPU, %.2fx peak RSS.\n", tag, lw / cw, lc / cc, lr / cr
        }'
    done
    if [[ -s $OUT/memory.log ]]; then
        echo
        echo "- memory, 10 batches of 12 thumbnails in one process (RSS after each batch, MB):" \
            "$(awk '{ for (i = 1; i <= NF; i++) if ($i ~ /^rss_kb=/) { sub("rss_kb=", "", $i); printf "%.1f ", $i / 1024 } }' "$OUT/memory.log")"
    fi
    if [[ -s $OUT/colour.log ]]; then
        echo
        echo "- colour, median per 160-px thumbnail, decoding excluded (plain: swscale without colour handling; adapter: the library):"
        sed 's/^/  /' "$OUT/colour.log"
    fi
    echo
    echo "Load before: $(cat "$OUT/uptime.before")"
    echo "Load after: $(cat "$OUT/uptime.after")"
} >"$OUT/table.md"
cat "$OUT/table.md"
