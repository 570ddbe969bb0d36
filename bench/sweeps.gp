# Draws docs/benchmarks-sweeps.svg.
# Usage: gnuplot -e "data='FOLDER'; output_file='FILE.svg'" bench/sweeps.gp
load "bench/style.gp"
set xtics ("512 B" 512, "4 KiB" 4096, "32 KiB" 32768, "256 KiB" 262144, "1 MiB" 1048576)
set xrange [400:1400000]
set xlabel "size of the buffer"
near = "orvi call floor"
far = "orvi socket stream"

set key top left
set ylabel "microseconds per read"
set title "In one process: median, and 99 of 100 (dashed)"
plot for [i=1:3] data."/sweep-in-process.dat" using 1:3*i-1 with linespoints ls i title word(near, i), \
     for [i=1:3] "" using 1:3*i with linespoints ls 10+i notitle
set title "Across processes: median, and 99 of 100 (dashed)"
plot for [i=1:3] data."/sweep-across-processes.dat" using 1:3*i-1 with linespoints ls i title word(far, i), \
     for [i=1:3] "" using 1:3*i with linespoints ls 10+i notitle
set key bottom right
set ylabel "MiB per second"
set title "In one process: throughput"
plot for [i=1:3] data."/sweep-in-process.dat" using 1:3*i+1 with linespoints ls i title word(near, i)
set title "Across processes: throughput"
plot for [i=1:3] data."/sweep-across-processes.dat" using 1:3*i+1 with linespoints ls i title word(far, i)
unset multiplot
