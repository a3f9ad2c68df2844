// Draws a plot for each record: its rate from list to list, and its errors up to then.
(function () {
    'use strict';

    function rows(times, record) {
        var points = [];
        for (var i = 1; i < times.length; ++i) {
            var seconds = (times[i] - times[i - 1]) / 1000;
            if (seconds < 1 && i < times.length - 1)
                continue; // a list that was asked for, or the second one at the end
            var rate = seconds >= 1 ? (record.counts[i] - record.counts[i - 1]) / seconds : null;
            points.push([new Date(times[i]), rate, record.errors[i]]);
        }
        return points;
    }

    function draw(place, times, record) {
        var points = rows(times, record);
        var canvas = place.querySelector('.canvas');
        if (points.length === 0) {
            canvas.textContent = 'one list only: nothing to plot';
            return;
        }
        place.graph = new Dygraph(canvas, points, {
            labels: ['time', record.what + ' a second', 'errors'],
            labelsUTC: true,
            series: { errors: { axis: 'y2', stepPlot: true } },
            axes: {
                x: { axisLabelWidth: 60 },
                y: { includeZero: true, axisLabelWidth: 42 },
                y2: { includeZero: true, axisLabelWidth: 42, independentTicks: true, drawGrid: false,
                      valueRange: [0, Math.max(4, 1.1 * record.errors[record.errors.length - 1])] }
            },
            colors: ['#1f5fa8', '#c62828'],
            includeZero: true,
            connectSeparatedPoints: true,
            drawPoints: points.length < 60,
            legend: 'onmouseover',
            highlightCircleSize: 4
        });
    }

    function draw_run(script) {
        var run = JSON.parse(script.textContent);
        run.records.forEach(function (record, index) {
            draw(document.getElementById(script.id + '-' + (index + 1)), run.times, record);
        });
    }

    // A plot has the width that it was drawn with: on paper and on a turned phone that is another.
    function fit() {
        document.querySelectorAll('.plot').forEach(function (place) {
            if (place.graph)
                place.graph.resize();
        });
    }

    document.querySelectorAll('script[type="application/json"]').forEach(draw_run);
    window.addEventListener('beforeprint', fit);
    window.addEventListener('afterprint', fit);
})();
