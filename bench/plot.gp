# Draws docs/benchmarks.svg. Usage: gnuplot -e "data='FOLDER'; output_file='FILE.svg'" bench/plot.gp
set terminal svg size 1000,760 font "sans-serif,13" background "white" dynamic
set output output_file
set multiplot layout 2,2 margins 0.08,0.98,0.08,0.95 spacing 0.09,0.13

set style line 1 lc rgb "#c0392b" lw 3 pt 7 ps 0.7
set style line 2 lc rgb "#2980b9" lw 2 pt 5 ps 0.6
set style line 3 lc rgb "#27ae60" lw 2 pt 9 ps 0.7
set style line 4 lc rgb "#8e44ad" lw 2 pt 11 ps 0.7
set style line 5 lc rgb "#e67e22" lw 2 pt 13 ps 0.7
set style line 6 lc rgb "#7f8c8d" lw 2 pt 3 ps 0.6
set grid lc rgb "#dddddd"
set key autotitle columnhead right bottom samplen 2 maxrows 3

set logscale xy
set xtics ("10" 10, "100" 100, "4 KiB" 4096, "64 KiB" 65536, "1 MiB" 1048576)
set xrange [8:1500000]
set ylabel "GB/s"
set title "Reading with sgetn, by size of the request"
plot for [i=2:7] data."/sgetn.dat" using 1:i with linespoints ls i-1
set title "Writing with sputn, by size of the request"
plot for [i=2:7] data."/sputn.dat" using 1:i with linespoints ls i-1

unset logscale
set xtics autofreq
set autoscale x
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.85 noborder
set boxwidth 0.9
set yrange [0:1.75]
set key right top
set ylabel "time as a multiple of orvi's"
set title "Single characters and lines (less is faster)"
plot for [i=2:7] data."/relative.dat" using i:xtic(1) ls i-1
set ylabel "time as a multiple of the floor's"
set title "One in-process remote read (less is faster)"
plot data."/calls.dat" using 2:xtic(1) ls 1, "" using 3 ls 6
unset multiplot
