# Draws docs/benchmarks-remoting.svg.
# Usage: gnuplot -e "data='FOLDER'; output_file='FILE.svg'" bench/remoting/plot.gp
set terminal svg size 1000,460 font "sans-serif,13" background "white" dynamic
set output output_file
set multiplot layout 1,2 margins 0.08,0.96,0.18,0.92 spacing 0.09,0.1

set style line 1 lc rgb "#c0392b"
set style line 2 lc rgb "#7f8c8d"
set style line 3 lc rgb "#2980b9"
set style line 4 lc rgb "#8e44ad"
set style line 5 lc rgb "#27ae60"
set grid ytics lc rgb "#dddddd"
set datafile missing "?"
set key autotitle columnhead top left horizontal maxcols 3 samplen 2
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.85 noborder
set boxwidth 0.9
set yrange [0:*]
set offsets 0, 0, graph 0.2, 0

set ylabel "microseconds"
set title "One call of 4 KiB, median (less is faster)"
plot for [i=2:6] data."/short.dat" using i:xtic(1) ls i-1
set ylabel "GiB/s"
set title "Calls of 64 KiB and 1 MiB, throughput"
set xtics rotate by -20
plot for [i=2:6] data."/long.dat" using i:xtic(1) ls i-1
unset multiplot
