# What the plots over a growing number share: four of them, in one process on the left and across
# processes on the right. Needs `output_file`.
set terminal svg size 1000,760 font "sans-serif,13" background "white" dynamic
set output output_file
set multiplot layout 2,2 margins 0.09,0.98,0.08,0.95 spacing 0.12,0.15

set style line 1 lc rgb "#c0392b" lw 3 pt 7 ps 0.7
set style line 2 lc rgb "#2980b9" lw 2 pt 5 ps 0.6
set style line 3 lc rgb "#7f8c8d" lw 2 pt 9 ps 0.7
set style line 4 lc rgb "#8e44ad" lw 2 pt 11 ps 0.7
set style line 11 lc rgb "#c0392b" lw 1.5 dt 2 pt 7 ps 0.4
set style line 12 lc rgb "#2980b9" lw 1.5 dt 2 pt 5 ps 0.4
set style line 13 lc rgb "#7f8c8d" lw 1.5 dt 2 pt 9 ps 0.4
set style line 14 lc rgb "#8e44ad" lw 1.5 dt 2 pt 11 ps 0.4
set grid lc rgb "#dddddd"
set datafile missing "?"
set key samplen 2
set logscale xy
set format y "%g"
set xlabel offset 0,0.5
