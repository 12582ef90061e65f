#!/usr/bin/env bash
# One training session of the detector. Resumes the run saved in
# model/ckpt/train_state.pt (or starts a new one), trains in chunks, and after
# each chunk exports the state with the score shift model.calibrate chooses
# and runs the evaluation's quick mode on it, appending a line to
# model/train_log/eval.tsv. The best evaluated state's model
# file becomes model/codeDetect_quantized.bin. Commit model/ckpt/train_state.pt,
# model/train_log/ and the model file afterwards: the next session carries on
# from exactly there.
#   bash model/train_session.sh [MINUTES (150)] [CHUNK MINUTES (30)]
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-150}
chunk=${2:-30}
py=/usr/bin/python3
bash scripts/setup.sh train

state=model/ckpt/train_state.pt
logs=model/train_log
mkdir -p "$logs" model/ckpt
end=$((SECONDS + minutes * 60))
# a chunk is worth starting only with time for some training and its evaluation
while ((end - SECONDS > 8 * 60)); do
  left=$(((end - SECONDS) / 60 - 4))
  resume=()
  seed=1 # a new run's
  if [ -f "$state" ]; then
    resume=(--resume "$state")
    seed=$("$py" -c "import torch; print(torch.load('$state')['args']['seed'])")
  fi
  nice -n 5 "$py" -m model.train "${resume[@]}" --minutes $((left < chunk ? left : chunk)) \
    >>"$logs/seed$seed-run.log" 2>&1
  # a run is named by its data seed
  name=$("$py" -c "import torch; s = torch.load('$state'); print(f\"seed{s['args']['seed']}-step-{s['step']}\")")
  candidate=model/ckpt/$name.bin
  "$py" -m model.export --ckpt "$state" --out "$candidate" >/dev/null
  shift_=$("$py" -m model.calibrate --model "$candidate" 2>>"$logs/calibrate.log")
  echo "$name: score shift $shift_" >>"$logs/calibrate.log"
  "$py" -m model.export --ckpt "$state" --out "$candidate" --score-shift "$shift_" >/dev/null
  bash scripts/evaluate.sh --quick --model "$candidate" --json "$logs/quick-$name.json" \
    >"$logs/quick-$name.txt" 2>&1
  "$py" -m model.log_eval "$logs/quick-$name.json" "$candidate" --tsv "$logs/eval.tsv" \
    --best model/codeDetect_quantized.bin
  done_steps=$("$py" -c "import torch; s = torch.load('$state'); print(int(s['step'] >= s['args']['total_steps']))")
  ((done_steps)) && break
done
