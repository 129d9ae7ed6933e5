# SPDX-License-Identifier: GPL-2.0
# The chart of the instruction counts: gnuplot -e "out='...'; rows='...'"
set terminal svg size 1000,520 font 'sans-serif,12' background 'white'
set output out
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.9 noborder
set boxwidth 0.9
set grid ytics lc rgb '#dddddd'
set border 3
set xtics rotate by -35 nomirror
set ytics nomirror
set ylabel 'instructions'
set logscale y 10
set yrange [1:*]
set rmargin 14
set key top left
plot rows using 2:xtic(1) title 'zorva' lc rgb '#1f77b4', \
     rows using 3 title 'the kernel alone' lc rgb '#bbbbbb'
