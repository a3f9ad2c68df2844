#!/usr/bin/env python3
"""The page of hk_results in a real browser: python3 page_test.py HK_RESULTS. Exits with 77, for "skipped",
where there is no browser.

The browser opens the page from disk. A script that is added at its end drags across a plot, and reports
what it sees in the page's title.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
BROWSER = next(filter(None, map(shutil.which, ('chromium-headless-shell', 'chromium'))), None)
RECORDS = 13  # of a run of all tests
RECORD = '<LI> 5 sp{port} loop wrote {count} read {count} errors {errors},0,0 hist 3,40 0,0 0,0 0,0 0,0'

LOOK = """<script>
window.addEventListener('load', function () {
    var faults = window.faults.slice();
    var graph = document.querySelector('.plot').graph;
    function mouse(type, x) {
        var box = document.querySelector('.plot canvas:last-of-type').getBoundingClientRect();
        var at = { bubbles: true, view: window, button: 0, clientX: box.left + x, clientY: box.top + 50 };
        document.querySelector('.plot canvas:last-of-type').dispatchEvent(new MouseEvent(type, at));
        document.dispatchEvent(new MouseEvent(type, at));
    }
    var whole = graph.xAxisRange();
    mouse('mousedown', 100); mouse('mousemove', 180); mouse('mouseup', 180);
    var zoomed = graph.xAxisRange();
    if (!(zoomed[1] - zoomed[0] < 0.8 * (whole[1] - whole[0]))) faults.push('no zoom');
    if (document.documentElement.scrollWidth > window.innerWidth) faults.push('wider than the window');
    if (document.querySelectorAll('.plot canvas').length < 2) faults.push('no plot');
    if (performance.getEntriesByType('resource').some(function (one) { return !one.name.startsWith('data:'); }))
        faults.push('loads something');
    document.title = 'seen: ' + (faults.join(', ') || 'all well');
});
</script>"""
WATCH = """<script>window.faults = []; window.addEventListener('error', function (event) {
window.faults.push(event.message); }); console.error = function (text) { window.faults.push(text); };</script>"""


def write_log(path):
    lines = []
    for number in range(1, 40):
        start = f'2026-11-22T01:{number:02}:00+00:00 rack7 oven</script><b>: '
        lines.append(f'{start}<OL>')
        for port in range(1, RECORDS + 1):
            errors = number // 10 if port < 5 else 0
            lines.append(start + RECORD.format(port=port, count=9000 * number, errors=errors))
        lines.append(f'{start}</OL><P>')
    path.write_text('\n'.join(lines) + '\n', encoding='ascii')


def browse(page, width, *options):
    command = [BROWSER, '--no-sandbox', '--disable-gpu', f'--window-size={width},900',
               '--virtual-time-budget=5000', f'--user-data-dir={page.parent}/profile-{width}',
               *options, page.as_uri()]
    return subprocess.run(command, capture_output=True, check=True, text=True, timeout=100).stdout


def main():
    if BROWSER is None:
        print('Skipped\nno browser: chromium-headless-shell')
        return SKIPPED
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        log, page = folder / 'run.log', folder / 'run.html'
        write_log(log)
        status = subprocess.run([sys.argv[1], '--html', page, log], stdout=subprocess.DEVNULL, check=False)
        assert status.returncode == 1, status
        text = page.read_text(encoding='utf-8')
        page.write_text(text.replace('<head>', '<head>' + WATCH).replace('</body>', LOOK + '</body>'))
        for width in (1200, 390):
            title = re.search(r'<title>(.*?)</title>', browse(page, width, '--dump-dom'))[1]
            assert title == 'seen: all well', f'{width} wide: {title}'
        paper = folder / 'run.pdf'
        browse(page, 1200, f'--print-to-pdf={paper}')
        sheets = len(re.findall(rb'/Type\s*/Page\b', paper.read_bytes()))
        assert sheets == 1, f'{sheets} sheets'
    return 0


if __name__ == '__main__':
    os.umask(0o077)
    sys.exit(main())
