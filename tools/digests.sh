#!/usr/bin/env bash
# A digest of every method's output on fixed inputs, one line per call, so
# that two builds of the library (32-bit x86 and x86-64) can be compared bit
# for bit.
#
#   tools/digests.sh PICTUREHOST OUTFILE   run every call with PICTUREHOST (and
#                                          the libPicture.so built beside it)
#                                          and write the digest lines to OUTFILE
#   tools/digests.sh --compare A B         compare two digest files line by
#                                          line; fails on any difference
#
# PICTUREHOST_RUNNER, when set, is a command that runs PICTUREHOST for the
# script (`tools/i386-root.sh run` for the 32-bit build, whose programs run
# only inside the i386 root); the digesting itself stays on this machine.
#
# Each call is a `picturehost call` or `picturehost run` command line. Its
# digest is the SHA-256 of everything it produced: its exit status, what it
# printed (numbers, booleans, strings of class properties; doubles with 17
# significant digits) and every file it wrote: the result picture saved as
# BMP, of which only the size and the pixels count (the saver leaves the
# padding at the end of each row uninitialised), raw strings and memory
# blocks, and the memory blocks passed to it. Output lines are
#   <sha256>  <exit status>  <command line>
# Runs under a private Xvfb when no display is set.
set -euo pipefail

CHECKOUT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

compare() {
  local a=$1 b=$2
  [[ -s $a ]] || { echo "digests: $a is missing or empty" >&2; return 1; }
  [[ -s $b ]] || { echo "digests: $b is missing or empty" >&2; return 1; }
  local count differ
  count=$(wc -l <"$a")
  if [[ $count -ne $(wc -l <"$b") ]]; then
    echo "digests: $a has $count lines, $b has $(wc -l <"$b")" >&2
    diff "$a" "$b" >&2 || true
    return 1
  fi
  differ=$(paste -d '\n' "$a" "$b" | awk 'NR % 2 { left = $0; next } $0 != left { n++; print "  " left; print "  " $0 } END { exit 0 }')
  if [[ -n $differ ]]; then
    echo "digests: $a and $b differ:" >&2
    printf '%s\n' "$differ" >&2
    return 1
  fi
  echo "digests: all $count calls agree between $a and $b"
}

if [[ ${1:-} == --compare ]]; then
  [[ $# -eq 3 ]] || { echo "usage: $0 --compare A B" >&2; exit 2; }
  compare "$2" "$3"
  exit
fi
[[ $# -eq 2 ]] || { echo "usage: $0 PICTUREHOST OUTFILE | --compare A B" >&2; exit 2; }
if [[ -z ${DISPLAY:-} ]]; then exec "$CHECKOUT/tools/with-xvfb.sh" "$0" "$@"; fi

PH=$(cd "$(dirname "$1")" && pwd -P)/$(basename "$1")
read -r -a RUNNER <<<"${PICTUREHOST_RUNNER:-}"
OUTFILE=$2
[[ -x $PH ]] || { echo "digests: $PH is not built" >&2; exit 1; }
# Under /tmp, which the i386 root shares.
WORK=$(mktemp -d /tmp/picture-digests.XXXXXX)
trap 'rm -rf "$WORK"' EXIT
export LC_ALL=C

# pattern FILE SIZE STEP: SIZE bytes, byte i = (STEP * i + 31 * (i / 97)) mod 256.
pattern() {
  local i s=""
  for ((i = 0; i < $2; i++)); do
    printf -v s '%s\\x%02x' "$s" $((($3 * i + 31 * (i / 97)) & 255))
  done
  printf "$s" >"$1"
}
# The size and the pixels of a 24-bit BMP file, one row a line, without the
# padding bytes that end each row; any other file as it is.
content() {
  if [[ $(head -c 2 "$1" | tr -d '\0') != BM ]]; then
    cat "$1"
    return
  fi
  local offset width height bpp stride
  read -r offset < <(od -An -tu4 -j10 -N4 "$1")
  read -r width height < <(od -An -td4 -j18 -N8 "$1")
  read -r bpp < <(od -An -tu2 -j28 -N2 "$1")
  if [[ $bpp != 24 ]]; then
    echo "digests: $1 is not a 24-bit BMP" >&2
    return 1
  fi
  stride=$(((width * 3 + 3) / 4 * 4))
  echo "BMP ${width}x${height}"
  od -An -v -tx1 -w"$stride" -j"$offset" "$1" | cut -d' ' -f2-$((width * 3 + 1))
}

mkdir -p "$WORK/in"
pattern "$WORK/in/rgb" 3075 7
pattern "$WORK/in/argb" 4100 13
pattern "$WORK/in/grey" 2100 5
pattern "$WORK/in/table" 256 37
cp "$CHECKOUT/tests/tone/data/invert.table" "$WORK/in/invert"

# The calls. `NAME:` in front labels a call, whose files later calls can read
# as $WORK/NAME/...; OUT stands for the call's --out file ($WORK/NAME/r.bmp).
# A call marked `address` returns a host address, which differs between runs:
# only its exit status and the shape of its output are digested.
CALLS=$(cat <<'EOF'
# Pixel access
call --on sample:64x48 CloneQVT --out OUT
call --on sample:37x23 BitmapQVT --out OUT
# Geometry
rot180: call --on sample:64x48 Rotate180QVT --out OUT
call --on sample:37x23 Rotate90QVT --out OUT
call --on sample:37x23 Rotate270QVT --out OUT
hmirror: call --on sample:64x48 HMirrorQVT --out OUT
vmirror: call --on sample:64x48 VMirrorQVT --out OUT
call --on sample:64x48 RotateQVT 30 '&cFFFFFF' --out OUT
call --on sample:64x48 RotateQVT -100.5 '&c336699' --out OUT
call --on sample:37x23 RotateQVT 45 '&c000000' --out OUT
call --on sample:37x23 RotateQVT 179.99 '&c808080' --out OUT
call --on sample:64x48 RotateQVT 1e-7 '&cFF00FF' --out OUT
call --on sample:37x23 RotateQVT 723.25 '&h12345678' --out OUT
call --on sample:64x48 ScaleQVT 80 60 true --out OUT
call --on sample:64x48 ScaleQVT 23 17 true --out OUT
call --on sample:37x23 ScaleQVT 101 7 true --out OUT
call --on sample:64x48 ScaleQVT 150 110 false --out OUT
call --on sample:37x23 ScaleQVT 5 40 false --out OUT
call --on sample:64x48 ScrollHorizontalQVT 5 true false --out OUT
call --on sample:64x48 ScrollVerticalQVT -7 false false --out OUT
call --on sample:64x48 --mask sample:64x48 ScrollQVT 3 -2 true true --out OUT
# Tone and colour
call --on sample:64x48 HasMaskQVT
call --on sample:64x48 --mask sample:64x48 HasMaskQVT
call --on sample:64x48 ChangeBrightnessAbsoluteQVT 40.5 0 -40.25 --out OUT
call --on sample:37x23 ChangeBrightnessAbsoluteQVT -60.5 --out OUT
call --on sample:64x48 ChangeBrightnessLinearQVT 80.3 -80.7 0.1 --out OUT
call --on sample:37x23 ChangeBrightnessLinearQVT 120.9 --out OUT
call --on sample:64x48 ChangeCustomQVT -1.3 255.7 --out OUT
call --on sample:37x23 ChangeCustomQVT 0.333 17.1 --out OUT
call --on sample:64x48 ChangeContrastQVT 0.8 --out OUT
call --on sample:37x23 ChangeContrastQVT 1.7 --out OUT
call --on sample:64x48 ChangeContrastQVT 1 0 -0.5 --out OUT
call --on sample:64x48 InvertQVT 8 6 32 24 --out OUT
call --on sample:37x23 InvertQVT -5 -5 100 100 --out OUT
call --on sample:64x48 --mask sample:64x48 EmbeddedMaskQVT false --out OUT
call --on sample:64x48 --mask sample:64x48 EmbeddedMaskQVT true --out OUT
call --on sample:64x48 AutoLevelQVT --out OUT
call --on sample:37x23 AutoLevelQVT --out OUT
call --on sample:64x48 CountColorQVT '&c000000'
call --on sample:64x48 CountColorQVT '&cFFFFFF'
call --on sample:64x48 CountColorsQVT zeros:0 zeros:0 zeros:0 0 --out OUT
call --on sample:37x23 TransformColorsQVT $WORK/in/invert $WORK/in/table $WORK/in/invert --out OUT
call CombinePicturesQVT sample:64x48 $WORK/rot180/r.bmp $WORK/hmirror/r.bmp --out OUT
call BlendPicturesQVT sample:64x48 0.3 $WORK/vmirror/r.bmp 0.7 --out OUT
call BlendPicturesQVT sample:64x48 1.37 $WORK/rot180/r.bmp -0.21 --out OUT
call BlendPicturesWithMaskQVT sample:64x48 $WORK/rot180/r.bmp $WORK/hmirror/r.bmp --out OUT
call TintPictureQVT sample:64x48 '&c4D961C' '&cFFC080' --out OUT
call TintPictureQVT sample:37x23 '&c102030' '&cFF0000' --out OUT
# Filter classes
run PictureMatrixQVT --set SourcePicture=sample:64x48 --set 'Matrix(2,2)=1' Run --out OUT
run PictureMatrixQVT --set SourcePicture=sample:64x48 --set 'Matrix(1,2)=-1' --set 'Matrix(2,1)=-1' --set 'Matrix(2,2)=5' --set 'Matrix(3,2)=-1' --set 'Matrix(2,3)=-1' 'RunRGB(true,false,true)' 'Matrix(2,2)' 'Matrix(5,0)' --out OUT
run PictureMatrixQVT --set SourcePicture=sample:37x23 --set 'Matrix(0,0)=3' --set 'Matrix(4,4)=-2' --set 'Matrix(1,3)=300' --set Displacement=17 --set ScaleFactor=0.37 --set MinX=3 --set MaxY=20 Run --out OUT
run PictureMatrixQVT --set SourcePicture=sample:64x48 Close
run PictureConvolutionQVT --set SourcePicture=sample:64x48 --set 'Hor(0)=0.25' --set 'Hor(1)=0.5' --set 'Hor(2)=0.25' --set 'Ver(0)=0.25' --set 'Ver(1)=0.5' --set 'Ver(2)=0.25' 'Run(7)' --out OUT
run PictureConvolutionQVT --set SourcePicture=sample:37x23 --set ValueCount=5 --set 'Hor(0)=0.1' --set 'Hor(1)=0.3' --set 'Hor(2)=0.21' --set 'Hor(3)=0.3' --set 'Hor(4)=0.1' --set 'Ver(1)=-0.7' --set 'Ver(2)=1.9' --set 'Ver(3)=-0.1' 'Run(5)' 'Hor(2)' 'Ver(20)' --out OUT
run PictureConvolutionQVT --set SourcePicture=sample:64x48 --set ValueCount=4 --set 'Hor(0)=0.3333' --set 'Hor(3)=0.6667' --set 'Ver(1)=1' 'Run(2)' Close
run PictureMatrix3DQVT --set SourcePicture=sample:64x48 --set 'Matrix(2,0)=1' --set 'Matrix(1,1)=1' --set 'Matrix(0,2)=1' Run --out OUT
run PictureMatrix3DQVT --set SourcePicture=sample:64x48 --set 'Matrix(0,0)=0.393' --set 'Matrix(1,0)=0.769' --set 'Matrix(2,0)=0.189' --set 'Matrix(0,1)=0.349' --set 'Matrix(1,1)=0.686' --set 'Matrix(2,1)=0.168' --set 'Matrix(0,2)=0.272' --set 'Matrix(1,2)=0.534' --set 'Matrix(2,2)=0.131' --set MinX=8 Run 'Matrix(1,1)' --out OUT
run PictureMatrix3DQVT --set SourcePicture=sample:37x23 --set 'Matrix(0,0)=1.1' --set 'Matrix(1,1)=0.9' --set 'Matrix(2,2)=1' --set 'Matrix(3,0)=-12.5' --set 'Matrix(3,2)=7.3' --set 'Matrix(0,3)=3.7' --set 'Matrix(2,3)=-20.2' --set MaxX=30 --set MinY=2 Run Close
run PictureLut3DQVT --set SourcePicture=sample:64x48 --set 'Table(15,0,0,0)=255' --set 'Table(0,15,0,1)=255' --set 'Table(0,0,15,2)=255' --set 'Table(15,15,15,0)=255' --set 'Table(15,15,15,1)=255' --set 'Table(15,15,15,2)=255' Run --out OUT
run PictureLut3DQVT --set SourcePicture=sample:37x23 --set 'Table(1,0,0,0)=17.5' --set 'Table(1,1,0,1)=40.25' --set 'Table(0,1,1,2)=99.9' --set 'Table(2,3,4,0)=300' --set 'Table(15,15,15,0)=255' --set 'Table(15,15,15,1)=127.3' --set 'Table(15,15,15,2)=63.7' --set 'Table(7,8,9,1)=-50' 'Table(7,8,9,1)' 'Table(18,0,0,0)' Run --out OUT
run PictureLut3DQVT --set SourcePicture=sample:64x48 --set MinX=10 --set MinY=5 --set MaxX=40 --set MaxY=30 --set 'Table(15,15,15,1)=200.5' Run Close
run PictureSepiaQVT --set SourcePicture=sample:64x48 --set SepiaRed=40 --set SepiaGreen=20 --set SepiaBlue=-20 Run --out OUT
run PictureSepiaQVT --set SourcePicture=sample:37x23 --set FactorRed=0.35 --set FactorBlue=0.5 --set FactorGreen=0.2 --set SepiaRed=10 --set MinX=2 --set MaxX=30 --set MinY=1 Run --out OUT
run PictureSepiaQVT --set SourcePicture=sample:64x48 --set FactorRed=-0.4 --set FactorBlue=1.3 --set FactorGreen=0.001 Run Close
run PictureMinMaxQVT 'FindAll(sample:64x48)' 'FindMaxAll(sample:37x23)'
run PictureMinMaxQVT 'FindMinAll(sample:64x48)' 'FindRed(sample:37x23)' 'FindGreen(sample:37x23)'
run PictureMinMaxQVT 'FindBlue(sample:64x48)' 'FindSum(sample:37x23)' 'FindMinRed(sample:64x48)'
run PictureMinMaxQVT 'FindMinGreen(sample:37x23)' 'FindMinBlue(sample:64x48)' 'FindMinSum(sample:37x23)'
run PictureMinMaxQVT 'FindMaxRed(sample:64x48)' 'FindMaxGreen(sample:37x23)' 'FindMaxBlue(sample:37x23)' 'FindMaxSum(sample:64x48)' Close
# Palettes
run PaletteQVT --set Count=3 --set 'Col(1)=&cFF0000' --set 'Col(2)=&c0000FF' 'Col(1)' 'Col(257)' Mem CountColors 'NewPicture(16,16)' Close
run PaletteQVT --from NewGrayPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewRedPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewGreenPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewBluePaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewWebPaletteQVT ALLCOLOURS CountColors 'NewPicture(16,16)'
run PaletteQVT --from NewWindowsPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewPalmPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewSystemPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from 'NewPaletteQVT(3)' 'Col(0)' 'Col(2)' CountColors 'NewPicture(5,5)'
call NewPaletteQVT 300
call NewSystemPaletteQVT
call --on sample:64x48 PaletteQVT
# Memory blocks
call --on sample:64x48 CopyRGBtoMemoryblockQVT zeros:9216 0 --out OUT
call --on sample:37x23 CopyRGBtoMemoryblockQVT zeros:2600 5 --out OUT
call --on sample:64x48 CopyARGBtoMemoryblockQVT zeros:12288 0 true 255 --out OUT
call --on sample:37x23 CopyARGBtoMemoryblockQVT zeros:3500 3 false -1 --out OUT
call --on sample:64x48 CopyRtoMemoryblockQVT zeros:3072 0 1 --out OUT
call --on sample:37x23 CopyGtoMemoryblockQVT zeros:3404 1 4 --out OUT
call --on sample:64x48 CopyBtoMemoryblockQVT zeros:9216 2 3 --out OUT
call --on sample:64x48 CopyRGBtoMemoryblockQVT zeros:100 0 --out OUT
call MemoryblockRGBtoPictureQVT $WORK/in/rgb 3 32 32 --out OUT
call MemoryblockARGBtoPictureQVT $WORK/in/argb 4 32 32 true --out OUT
call MemoryblockARGBtoPictureQVT $WORK/in/argb 1 31 33 false --out OUT
call MemoryblockGrayToPictureQVT $WORK/in/grey 0 32 32 2 --out OUT
call MemoryblockGrayToPictureQVT $WORK/in/grey 7 40 50 1 --out OUT
# The binary string form, written and read back
ppic: call PicturetoBinaryStringQVT sample:37x23 --out OUT
call BinaryStringtoPictureQVT $WORK/ppic/r.bmp --out OUT
# Platform handles
call --on sample:64x48 DataTypeQVT
address call --on sample:64x48 DataHandleQVT
call --on sample:64x48 MakeHBITMAPQVT
call --on sample:64x48 PicHandleQVT --out OUT
call --on sample:64x48 PicHandleDataQVT --out OUT
call BuildPictureWithPicHandleDataQVT $WORK/ppic/r.bmp --out OUT
call BuildPictureWithGWorldHandleQVT 0 false --out OUT
call --on sample:64x48 PaintDesktopQVT --out OUT
EOF
)

colours=()
for ((i = 0; i < 256; i++)); do colours+=("Col($i)"); done

# Every registered method must be called by some line: extension methods and
# global methods by a `call` line (or as the factory of a `run`), class
# methods by a `run` line of their class, and assignable ones also through
# --set. The command line cannot assign to a Picture method, so those two
# setters are left out.
UNREACHABLE=" setter:Picture.PaletteQVT setter:Picture.EmbeddedMaskQVT "
# uses NAME KIND CLASS: whether some line calls (KIND get) or assigns (KIND
# set) NAME, of class CLASS (empty: extension or global).
uses() {
  local name=$1 kind=$2 cls=$3 l w words
  while IFS= read -r l; do
    [[ -z $l || $l == \#* ]] && continue
    [[ $l =~ ^[a-z0-9]+:\ (.*)$ ]] && l=${BASH_REMATCH[1]}
    l=${l#address }
    eval "words=($l)"
    if [[ -n $cls ]]; then
      [[ ${words[0]} == run && ${words[1]} == "$cls" ]] || continue
    fi
    local previous=""
    for w in "${words[@]}"; do
      [[ $w == ALLCOLOURS ]] && w="Col(0)"
      if [[ -z $cls ]]; then
        if [[ ${words[0]} == call && $w == "$name" ]] || [[ $previous == --from && ${w%%(*} == "$name" ]]; then
          return 0
        fi
      elif [[ $kind == set ]]; then
        [[ $previous == --set && ${w%%(*} == "$name" && $w == *=* ]] && return 0
      else
        [[ $previous != --set && $previous != --from && ${w%%(*} == "$name" ]] && return 0
      fi
      previous=$w
    done
  done <<<"$CALLS"
  return 1
}
missing=()
owner=""
while IFS= read -r l; do
  case $l in
    "class "*) owner=${l#class } ;;
    "extension "*) owner="" extension=${l#extension } ;;
    "global "*) name=${l#global }; name=${name%%[( ]*}; uses "$name" get "" || missing+=("global $name") ;;
    "  method "*|"    setter "*)
      kind=get; [[ $l == "    setter "* ]] && kind=set
      name=${l#*[dr] }; name=${name%%[( ]*}
      if [[ -n $owner ]]; then
        uses "$name" "$kind" "$owner" || missing+=("$kind $owner.$name")
      elif [[ $kind == get ]]; then
        uses "$name" get "" || missing+=("$extension.$name")
      elif [[ $UNREACHABLE != *" setter:$extension.$name "* ]]; then
        missing+=("setter $extension.$name")
      fi
      ;;
  esac
done < <("${RUNNER[@]}" "$PH" list)
if ((${#missing[@]})); then
  echo "digests: no call covers: ${missing[*]}" >&2
  exit 1
fi

lines=0
: >"$WORK/digests"
while IFS= read -r line; do
  [[ -z $line || $line == \#* ]] && continue
  label="" address=0
  if [[ $line =~ ^([a-z0-9]+):\ (.*)$ ]]; then
    label=${BASH_REMATCH[1]}
    line=${BASH_REMATCH[2]}
  fi
  if [[ $line == address\ * ]]; then
    address=1
    line=${line#address }
  fi
  lines=$((lines + 1))
  dir=$WORK/${label:-call$lines}
  mkdir -p "$dir"
  eval "words=($line)"
  args=()
  for w in "${words[@]}"; do
    case $w in
      OUT) args+=("$dir/r.bmp") ;;
      ALLCOLOURS) args+=("${colours[@]}") ;;
      *) args+=("$w") ;;
    esac
  done
  status=0
  (cd "$dir" && "${RUNNER[@]}" "$PH" "${args[@]}" >"$dir/stdout" 2>"$dir/stderr") || status=$?
  if [[ $status -ne 0 && $status -ne 3 ]]; then
    echo "digests: '$line' failed with status $status:" >&2
    cat "$dir/stderr" >&2
    exit 1
  fi
  if [[ $address == 1 ]]; then
    sed -i 's/-\{0,1\}[0-9][0-9]*/ADDRESS/g' "$dir/stdout"
  fi
  digest=$(
    cd "$dir"
    {
      echo "status $status"
      for f in stdout $(ls | grep -v -x -e stdout -e stderr | sort); do
        printf '%s %s\n' "$f" "$(content "$f" | sha256sum | cut -d' ' -f1)"
      done
    } | sha256sum | cut -d' ' -f1
  )
  # The command line as written, with the work directory left out.
  printf '%s  %s  %s\n' "$digest" "$status" "${line//\$WORK\//}" >>"$WORK/digests"
done <<<"$CALLS"

mkdir -p "$(dirname "$OUTFILE")"
mv "$WORK/digests" "$OUTFILE"
echo "digests: $lines calls digested into $OUTFILE"
