# Draws docs/benchmarks-streams.svg.
# Usage: gnuplot -e "data='FOLDER'; output_file='FILE.svg'" bench/streams.gp
load "bench/style.gp"
set xtics ("1" 1, "10" 10, "100" 100, "1,000" 1000, "10,000" 10000)
set xrange [0.7:14000]
set xlabel "published streams"
set key top left

set ylabel "microseconds"
set title "In one process: one operation, median"
plot for [i=2:5] data."/streams-in-process.dat" using 1:i with linespoints ls i-1 title columnhead(i)
set title "Across processes: one operation, median"
plot for [i=2:3] data."/streams-across-processes.dat" using 1:i with linespoints ls i+1 title columnhead(i)
unset logscale y
set yrange [0:*]
set key bottom right
set ylabel "KiB for each stream"
set title "In one process: memory"
plot data."/streams-in-process.dat" using 1:6 with linespoints ls 1 title "published"
set title "Across processes: memory"
plot data."/streams-across-processes.dat" using 1:4 with linespoints ls 1 title "published", \
     "" using 1:5 with linespoints ls 2 title "connected, publisher", \
     "" using 1:6 with linespoints ls 4 title "connected, importer"
unset multiplot
