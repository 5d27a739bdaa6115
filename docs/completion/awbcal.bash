# Completion of awbcal for bash: source it, or put it into the folder of completions as "awbcal".

_awbcal() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
  local kinds="awb a_light_awb flash aec dual_flash gyro lens_shading dual_camera dual_camera_first_form
    dual_camera_payload"
  local input="--as --base --camera --help"
  declare -A options=(
    [demo]="--dir --seed --frames --storage --units --spread --bad --drift --help"
    [fleet]="--csv --ndjson --html --force --golden --threshold --limits --lot --strict --accept --jobs --db --from --since --until
      --help"
    [show]="--json --raw $input"
    [verify]="--json --fuse --require --only --ignore --golden --threshold --limits --strict --no-accept $input"
    [explain]="--json --log --tuning --mesh-tuning --golden --fuse --reboot --verbose $input"
    [diff]="--json --as-a --as-b --help"
    [pack]="--output --force --seal --seal-only --help"
    [redact]="--output --check --force $input"
    [backup]="--base --fuse --force --help"
    [restore]="--dry-run --force --base --fuse --help"
    [report]="--html --force --redact --golden --threshold --limits --fuse --tuning --mesh-tuning $input"
    [pull]="--serial --whole --help"
    [help]="--help"
    [replay]="--json --html --force --golden --threshold --light-source --format --size --stride --bayer --black --white --grid --help"
  )
  local words=""
  if [ "$COMP_CWORD" -eq 1 ]; then
    words="${!options[*]} --help --version --color"
  elif [[ $word == -* ]]; then
    words="${options[$command]} --color"
  else
    case $previous in
      --as | --as-a | --as-b) words="phone partition export node $kinds" ;;
      --require | --only | --ignore)
        # A list, of which the last kind is being typed; it may begin with a camera.
        local typed=${word%"${word##*[,:]}"}
        words=" $kinds"
        words=${words//[[:space:]]/ $typed}
        ;;
      --seal-only) words=$kinds ;;
      --color) words="always auto never" ;;
      help) words="${!options[*]} exit-codes" ;;
      --base) words="4k 2k" ;;
      --camera | explain) words="main front sub" ;;
      --storage) words="emmc nand" ;;
      --format) words="csv raw10 raw16 dng" ;;
      --bayer) words="rggb bggr grbg gbrg" ;;
    esac
  fi
  # What is left without words is a file, which bash completes by itself.
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -o default -F _awbcal awbcal
