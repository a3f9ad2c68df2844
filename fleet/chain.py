"""The whole chain on one machine: boards, collector, mtail, Prometheus, Alertmanager.

It runs the shipped configurations with the folder, the name of the collector and the intervals
replaced. Everything lives in namespaces of its own and ends with the process that called enter();
every file is in the folder given. Collector and engines are at 10.77.0.1; the boards are at 10.77.0.2,
at the other end of a cable that can be pulled.
"""
import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.parse
import urllib.request

FLEET = pathlib.Path(__file__).resolve().parent
COLLECTOR = '10.77.0.1'
BOARDS = '10.77.0.2'
SOCKETS = pathlib.Path('/run')  # of these namespaces
NEEDED = {
    'rsyslog': ['/usr/sbin/rsyslogd'],
    'rsyslog-relp': ['/usr/lib/*/rsyslog/imrelp.so'],
    'mtail': ['/usr/bin/mtail'],
    'prometheus': ['/usr/bin/prometheus', '/usr/bin/promtool'],
    'prometheus-alertmanager': ['/usr/bin/prometheus-alertmanager'],
    'iproute2': ['/bin/ip'],
}


def missing_packages():
    return [package for package, files in NEEDED.items()
            if not all(any(pathlib.Path('/').glob(file[1:])) for file in files)]


def isolation():
    """The command that puts a program into namespaces of its own, which end with it."""
    user = ['--user', '--map-root-user'] if os.getuid() != 0 else []
    return ['unshare', *user, '--mount', '--net', '--ipc', '--pid', '--fork', '--kill-child=KILL',
            '--mount-proc']


def enter():
    """Starts this script again, in its own namespaces. Returns in there."""
    if os.environ.get('HK_FLEET_INSIDE') != str(os.getppid()):
        os.environ['HK_FLEET_INSIDE'] = '0'  # the number of the parent, seen from inside
        os.execvp('unshare', [*isolation(), sys.executable, *sys.argv])
    subprocess.run(['ip', 'link', 'set', 'lo', 'up'], check=True)
    # The name of a socket has at most 107 letters, and that of a build folder may be long.
    subprocess.run(['mount', '-t', 'tmpfs', 'sockets', SOCKETS], check=True)


class TimedOut(Exception):
    """An event did not come."""


def wait_for(what, claim, seconds=30, every=0.05):
    """Waits until the claim holds; returns what it returned."""
    end = time.monotonic() + seconds
    while True:
        value = claim()
        if value:
            return value
        if time.monotonic() > end:
            raise TimedOut(f'{what}: not within {seconds} s')
        time.sleep(every)


def replaced(name, texts):
    """The text of a shipped file, with texts replaced that must be in it."""
    text = (FLEET / name).read_text()
    for old, new in texts.items():
        if old not in text:
            raise ValueError(f'{name} has no {old!r}')
        text = text.replace(old, str(new))
    return text


class Chain:
    """Starts and stops the parts; asks them what they know."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        shutil.rmtree(self.folder, ignore_errors=True)
        (self.folder / 'logs').mkdir(parents=True)
        self.kept = self.folder / 'logs' / 'boards.log'
        self.kept.touch()  # mtail reads a file that it finds later from its end
        self.parts = {}
        self.start_part('field', ['unshare', '--net', 'sleep', 'infinity'])
        self._connect_field()

    # The cable between boards and collector

    def _connect_field(self):
        field = str(self.parts['field'].pid)
        wait_for('the network of the boards',
                 lambda: os.readlink('/proc/self/ns/net') != os.readlink(f'/proc/{field}/ns/net'))
        for command in (f'ip link add collector type veth peer name boards netns {field}',
                        f'ip address add {COLLECTOR}/24 dev collector', 'ip link set collector up'):
            subprocess.run(command.split(), check=True)
        for command in (f'ip address add {BOARDS}/24 dev boards', 'ip link set boards up',
                        'ip link set lo up'):
            subprocess.run([*self.in_field(), *command.split()], check=True)

    def in_field(self):
        return ['nsenter', '-t', str(self.parts['field'].pid), '-n']

    def set_cable(self, is_plugged):
        subprocess.run(['ip', 'link', 'set', 'collector', 'up' if is_plugged else 'down'], check=True)

    # The parts

    def start_part(self, name, command, **options):
        with open(self.folder / f'{name}.out', 'ab') as out:
            self.parts[name] = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out,
                                                stderr=out, **options)

    def stop(self, name, how='terminate'):
        part = self.parts.pop(name)
        getattr(part, how)()
        return part.wait()

    def stop_all(self):
        for name in reversed(list(self.parts)):
            self.stop(name, 'kill')
        # The kernel removes it too, some time after the end of the boards' network.
        subprocess.run(['ip', 'link', 'delete', 'collector'], capture_output=True, check=False)

    def _start_rsyslogd(self, name, configuration, within=()):
        path = self.folder / f'{name}.conf'
        path.write_text(f'global(workDirectory="{self.folder}" localHostname="{name}")\n' + configuration)
        self.start_part(name, [*within, '/usr/sbin/rsyslogd', '-n', '-f', str(path),
                           '-i', str(self.folder / f'{name}.pid')])

    def start_collector(self, texts=None):
        """The rsyslogd of the collector; returns once it listens."""
        self._start_rsyslogd('collector', replaced('collector.conf', {
            '/var/log/hk_stress': self.folder / 'logs', **(texts or {})}))
        self._wait_for_port('collector', 10514)

    def start_board(self, name, texts=None):
        """The rsyslogd of a board; returns its socket in place of /dev/log."""
        path = SOCKETS / f'{name}.socket'
        path.unlink(missing_ok=True)
        self._start_rsyslogd(name, 'module(load="imuxsock" SysSock.Use="off")\n'
                             f'input(type="imuxsock" Socket="{path}")\n' +
                             replaced('board.conf', {'target="collector.example.net"': f'target="{COLLECTOR}"',
                                                    **(texts or {})}),
                             self.in_field())
        wait_for(f'the socket of {name}', path.exists)
        return path

    def start_relay(self):
        """The rsyslogd of a rack's relay, at port 514 of the boards' network."""
        self._start_rsyslogd('relay', replaced('relay.conf', {
            'target="collector.example.net"': f'target="{COLLECTOR}"'}), self.in_field())
        wait_for('the relay', lambda: ':514 ' in subprocess.run(
            [*self.in_field(), 'ss', '-lun'], capture_output=True, text=True, check=True).stdout)

    def start_mtail(self):
        """mtail, from the end of the file on; returns once it follows the file."""
        said = self.folder / 'mtail.out'
        known = said.read_text().count('Tailing') if said.exists() else 0
        self.start_part('mtail', ['mtail', '--progs', str(FLEET / 'stress.mtail'), '--logs', str(self.kept),
                              '--address', '127.0.0.1', '--port', '3903', '--logtostderr',
                              '--expired_metrics_gc_interval', '1m'])
        self._wait_for_port('mtail', 3903)
        wait_for('mtail to follow the file', lambda: said.read_text().count('Tailing') > known)

    def start_prometheus(self, scrape_s=5):
        """Prometheus, with another interval of scrapes and rules; None: the shipped ones."""
        shipped = scrape_s is None
        for name, texts in (('prometheus.yml', {'scrape_interval: 30s': f'scrape_interval: {scrape_s}s',
                                                'evaluation_interval: 15s': f'evaluation_interval: {scrape_s}s',
                                                'scrape_timeout: 20s': f'scrape_timeout: {scrape_s}s'}),
                            ('rules.yml', {'interval: 15s': f'interval: {scrape_s}s'})):
            (self.folder / name).write_text(replaced(name, {} if shipped else texts))
        self.start_part('prometheus', ['prometheus', f'--config.file={self.folder}/prometheus.yml',
                                   f'--storage.tsdb.path={self.folder}/prometheus',
                                   '--web.listen-address=127.0.0.1:9090'])
        self._wait_for_port('prometheus', 9090)

    def start_alertmanager(self):
        self.start_part('alertmanager', ['prometheus-alertmanager',
                                     f'--config.file={FLEET}/alertmanager.yml',
                                     f'--storage.path={self.folder}/alertmanager',
                                     '--cluster.listen-address=', '--web.listen-address=127.0.0.1:9093'])
        self._wait_for_port('alertmanager', 9093)

    def _wait_for_port(self, name, port):
        def answers():
            if self.parts[name].poll() is not None:
                raise TimedOut(f'{name} ended: {(self.folder / (name + ".out")).read_text()}')
            with socket.socket() as connection:
                return connection.connect_ex(('127.0.0.1', port)) == 0
        wait_for(f'{name} on port {port}', answers)

    # What they know

    def kept_lines(self):
        """The whole lines of the collector's file; the last one may still be in the making."""
        text = self.kept.read_text(errors='replace') if self.kept.exists() else ''
        return text[:text.rfind('\n') + 1].splitlines()

    def series(self, name, port=3903):
        """The series of a metric in mtail, or in Prometheus at 9090: labels and value."""
        with urllib.request.urlopen(f'http://127.0.0.1:{port}/metrics') as answer:
            lines = [line for line in answer.read().decode().splitlines() if line.startswith(name + '{')]
        return [(line[line.index('{') + 1:line.rindex('}')], float(line.rsplit(' ', 1)[1])) for line in lines]

    def series_total(self):
        """The number of series that Prometheus keeps."""
        with urllib.request.urlopen('http://127.0.0.1:9090/metrics') as answer:
            return next(float(line.split()[1]) for line in answer.read().decode().splitlines()
                        if line.startswith('prometheus_tsdb_head_series '))

    def query(self, expression):
        """The answer of Prometheus: a list of labels and value."""
        found = self.get('http://127.0.0.1:9090/api/v1/query?' +
                         urllib.parse.urlencode({'query': expression}))['data']['result']
        return [(each['metric'], float(each['value'][1])) for each in found]

    def alerts(self, name=None):
        """The alerts in Alertmanager, as its interface gives them."""
        try:
            alerts = self.get('http://127.0.0.1:9093/api/v2/alerts')
        except urllib.error.URLError:
            return []
        return [alert for alert in alerts if name in (None, alert['labels']['alertname'])]

    @staticmethod
    def get(address, body=None):
        request = urllib.request.Request(address, headers={'Content-Type': 'application/json'},
                                         data=None if body is None else json.dumps(body).encode())
        with urllib.request.urlopen(request, timeout=10) as answer:
            return json.loads(answer.read() or b'null')


class Syslog:
    """Speaks to the socket of a board's rsyslogd as syslog(3) does."""

    def __init__(self, path, ident):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.connect(str(path))
        self.ident = ident

    def send(self, text):
        stamp = time.strftime('%b %e %H:%M:%S')
        self.socket.send(f'<14>{stamp} {self.ident}: {text}'.encode())

    def send_list(self, *items):
        for text in ('<OL>', *items, '</OL><P>'):
            self.send(text)


def loop_item(wrote, errors=0, errors2=0, errors3=0):
    """An item of a crossover on port 8."""
    return f'<LI> 5 sp8 loop wrote {wrote} read {wrote} errors {errors2},{errors},{errors3} hist 0,0 0,0 0,0 0,0 0,0'
