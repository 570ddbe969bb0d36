# Draws docs/benchmarks-readers.svg.
# Usage: gnuplot -e "data='FOLDER'; output_file='FILE.svg'" bench/readers.gp
load "bench/style.gp"
set xtics (1, 2, 4, 8, 16, 32, 64)
set xrange [0.85:75]
set xlabel "threads that read"
near = "orvi orvi-one floor"
far = "orvi orvi-one socket stream"

set key bottom left
set ylabel "MiB per second, all together"
set title "In one process: throughput"
plot for [i=1:3] data."/readers-in-process.dat" using 1:3*i+1 with linespoints ls i title word(near, i)
set title "Across processes: throughput"
plot for [i=1:4] data."/readers-across-processes.dat" using 1:3*i+1 with linespoints ls i title word(far, i)
set key top left
set ylabel "microseconds per read"
set title "In one process: median, and 99 of 100 (dashed)"
plot for [i=1:3] data."/readers-in-process.dat" using 1:3*i-1 with linespoints ls i title word(near, i), \
     for [i=1:3] "" using 1:3*i with linespoints ls 10+i notitle
set title "Across processes: median, and 99 of 100 (dashed)"
plot for [i=1:4] data."/readers-across-processes.dat" using 1:3*i-1 with linespoints ls i title word(far, i), \
     for [i=1:4] "" using 1:3*i with linespoints ls 10+i notitle
unset multiplot
