# The tables of scripts/bench.sh from lines "name,microseconds".
{ t[$1] = $2 }

function us(name) { return name in t ? sprintf(t[name] < 10 ? "%.1f" : "%.0f", t[name]) : "–" }

function ratio(what, ours, theirs, factor, goal) {
  if (!(ours in t) || !(theirs in t)) return
  printf "| %s | %s | %.*f | %.2f | %s |\n", what, us(ours), t[theirs] < 10 ? 1 : 0, \
    factor * t[theirs], t[ours] / (factor * t[theirs]), goal
}

function sizes(kind, names, count, i, m, n) {
  printf "\n| %s | M = 4, N = 1 / 2 / 4 | M = 8 | M = 16 | M = 32 |\n|---|---|---|---|---|\n", kind
  count = split(names, name, ";")
  for (i = 1; i <= count; ++i) {
    printf "| %s |", name[i]
    for (m = 4; m <= 32; m *= 2) {
      for (n = 1; n <= 4; n *= 2) {
        printf " %s%s", us(kind "/" name[i] "/M:" m "/N:" n), n < 4 ? " /" : " |"
      }
    }
    printf "\n"
  }
}

END {
  print "\n| measured together | ours | baseline | ratio | goal |\n|---|---|---|---|---|"
  for (n = 4; n <= 16; n *= 2) ratio("SVD " n " × " n ", zgesdd", "svd/" n, "zgesdd/" n, 1, "≤ 1")
  for (n = 4; n <= 16; n *= 2) ratio("Hermitian " n " × " n ", zheev", "evd/" n, "zheev/" n, 1, "≤ 1.5")
  for (n = 4; n <= 16; n *= 2) ratio("generalised " n " × " n ", zhegv", "gevd/" n, "zhegv/" n, 1, "")
  at = "/M:8/N:2"
  ratio("ML frame, MVDR weights by zgesdd", "frame/CML" at, "lapack/MVDR/8/2", 1, "≤ 1")
  ratio("MSNR frame, 2 targets, 2 × zhegv", "frame/CMSNR" at, "lapack/GEVD/8/2", 1, "≤ 1.2")
  ratio("MSNR frame, target and noise, 2 × zhegv", "frame/CMSNR with noise" at, "lapack/GEVD/8/2", 1, "≤ 1.2")
  ratio("NULL frame, null weights by zgesdd", "frame/NULL" at, "lapack/NULL/8/2", 1, "")
  ratio("apply, plain loop", "apply", "plain/apply", 1, "≤ 2")
  ratio("GICA step, plain loop", "adapt/GICA", "plain/GICA", 1, "≤ 2")
  ratio("LCMV step, plain loop", "adapt/LCMV", "plain/LCMV", 1, "≤ 2")
  ratio("GJ step, plain loop", "adapt/GJ", "plain/GJ", 1, "≤ 2")
  print "\nWhole frames of 257 bins (update, apply, adapt; µs); a frame every 160 samples at 16 kHz"
  print "leaves 10,000 µs, so the real-time factor is the time divided by 10,000."
  sizes("frame", "DS;WDS;NULL;ILSE;LCMV;GJ;GICA;CML;CMSNR;CMSNR with noise")
  print "\nThe same through the nodes, in and out of the host's containers:"
  sizes("node", "NULL;LCMV;GJ;GICA;ML;MSNR")
}
